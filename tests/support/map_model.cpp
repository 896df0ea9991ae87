#include "tests/support/map_model.h"

#include <algorithm>
#include <utility>

#include "platform/commands.h"
#include "tests/support/names.h"

namespace test {

namespace {

bool isSystem(const message& request) {
  return !request.has(key::rights) || request.get(key::rights) >= 0x80000000;
}

/// What elements are asked for: the bit of the store comes from the map alone.
std::uint32_t flagsOf(const message& request) { return request.get(key::getFlags, 5) & 0x7fffffff; }

/// What the new configuration overwrote.
message difference(const ElementConfig& before, const ElementConfig& after) {
  message m;
  if (before.text != after.text) m.insert(field::text, before.text);
  if (before.number != after.number) m.insert(field::number, before.number);
  if (before.isVolatile != after.isVolatile) m.insert(field::isVolatile, before.isVolatile);
  if (before.isSilent != after.isSilent) m.insert(field::isSilent, before.isSilent);
  if (before.isFinal != after.isFinal) m.insert(field::isFinal, before.isFinal);
  return m;
}

bool isUndoable(const ElementConfig& config) { return !config.isFinal && !config.isVolatile; }

}  // namespace

// Commands.

Expected MapModel::command(const message& request) {
  message reply = nv::errorMsg(err::badCommand, "");
  switch (request.get(key::command)) {
    case cmd::addObj: reply = add(request); break;
    case cmd::setObj: reply = set(request); break;
    case cmd::removeObj: reply = remove(request); break;
    case cmd::moveObj:
      if (isOrdered_) reply = move(request);
      break;
    case cmd::getObj: reply = getOne(request); break;
    case cmd::getAll: reply = getAll(request); break;
    case cmd::getCount: reply = {{key::count, static_cast<std::uint32_t>(order.size())}}; break;
    default: break;
  }
  say("reply");
  return done(std::move(reply));
}

message MapModel::add(const message& request) {
  auto place = placeOf(request);
  if (isOrdered_ && !place) return nv::errorMsg(err::noSuchPosition, "");
  const std::uint32_t manager = managerOf(request);
  if (manager != kNoId && !takesManaged) return nv::failedMsg("can not create managed object");
  std::uint32_t id = request.get(key::objectId, kNoId);
  if (id == kNoId) {
    id = lowestFree();
    if (id == kNoId) return nv::errorMsg(err::idInUse, "");
  } else if (id < 1 || id > kMax) {
    return nv::errorMsg(err::noSuchObject, "");
  } else if (objects.contains(id)) {
    return nv::errorMsg(err::idInUse, "");
  }
  Entry added{{}, manager};
  added.config.read(request);
  check("checkAdd", id, *place);
  if (refusesConfig(added.config)) return serviceRefusal();

  if (request.get(key::dynamic) && isSystem(request)) dynamic.insert(id);
  objects[id] = added;
  insertAt(*place, id);
  say("objAdded", id);
  announce(id, added.config);
  publish(added, " added", {{key::command, cmd::removeObj}, {key::objectId, id}});
  return std::move(serviceApproval().insert(key::objectId, id));
}

message MapModel::set(const message& request) {
  if (auto no = refusal(request, "can't edit dynamic object")) return *no;
  const std::uint32_t id = request.get(key::objectId);
  ElementConfig& config = objects.at(id).config;
  const ElementConfig before = config;
  config.read(request);
  check("checkChange", id, indexOf(id) + 1);
  if (refusesConfig(config)) {
    config = before;
    return serviceRefusal();
  }
  if (!config.isVolatile)
    store(id);
  else if (!before.isVolatile)
    unstore(id);
  if (config.isVolatile != before.isVolatile) store(previousStorable(id));
  say("objChanged", id);
  announce(id, config);
  if (isUndoable(before)) {
    message undo = difference(before, config);
    undo.merge(message{{key::command, cmd::setObj}, {key::objectId, id}});
    publish(objects.at(id), " changed", undo);
  }
  return serviceApproval();
}

message MapModel::remove(const message& request) {
  if (auto no = refusal(request, "can't remove dynamic object")) return *no;
  const std::uint32_t id = request.get(key::objectId);
  const Entry entry = objects.at(id);
  check("checkRemove", id, indexOf(id) + 1);
  if (refusesGoing(entry.config)) return serviceRefusal();
  message undo{{key::command, cmd::addObj}, {key::objectId, id}};
  if (isOrdered_) undo.insert(key::nextId, nextOf(id));
  entry.config.write(undo);
  undo.insert(field::flags, 5);
  takeOut(id);
  say("objRemoved", id);
  announce(id, entry.config);
  publish(entry, " removed", undo);
  return serviceApproval();
}

message MapModel::move(const message& request) {
  const std::uint32_t id = request.get(key::objectId, kNoId);
  if (!objects.contains(id)) return nv::errorMsg(err::noSuchObject, "");
  const std::size_t place = placeOf(request).value_or(order.size());
  if (place == indexOf(id))
    return nv::errorMsg(err::badCommand, "can not move object before itself");
  say("checkMove " + std::to_string(id) + '>' + nextWord(indexOf(id) + 1) + " to " +
      nextWord(place));
  if (refusesGoing(objects.at(id).config)) return serviceRefusal();
  const message undo{{key::command, cmd::moveObj}, {key::objectId, id}, {key::nextId, nextOf(id)}};
  moveTo(place, id);
  say("objMoved", id);
  announce(id, objects.at(id).config);
  publish(objects.at(id), " moved", undo);
  return serviceApproval();
}

std::optional<message> MapModel::refusal(const message& request, const char* dynamicText) const {
  const std::uint32_t id = request.get(key::objectId, kNoId);
  if (!objects.contains(id)) return nv::errorMsg(err::noSuchObject, "");
  if (managerOf(request) != objects.at(id).manager)
    return nv::failedMsg("can not change managed object");
  if (!isSystem(request) && dynamic.contains(id)) return nv::failedMsg(dynamicText);
  return std::nullopt;
}

std::uint32_t MapModel::managerOf(const message& m) const {
  return isOrdered_ ? kNoId : m.get(key::managedId, kNoId);
}

std::optional<std::size_t> MapModel::placeOf(const message& request) const {
  if (!isOrdered_) return order.size();
  const std::uint32_t position = request.get(key::nextId, kNoId);
  if (position == front) return 0;
  if (position != kNoId && !objects.contains(position)) return std::nullopt;
  return indexOf(position);
}

message MapModel::getOne(const message& request) const {
  const std::uint32_t id = request.get(key::objectId, kNoId);
  if (!objects.contains(id)) return nv::errorMsg(err::noSuchObject, "");
  message reply = entryOf(id, flagsOf(request));
  if (isOrdered_) reply.remove(key::objectId);
  if (isOrdered_) reply.insert(key::nextId, nextOf(id));
  return reply;
}

message MapModel::getAll(const message& request) const {
  const std::uint32_t start = request.get(key::startId, kNoId);
  if (start != kNoId && !objects.contains(start)) return nv::errorMsg(err::noSuchObject, "");
  message reply;
  const std::uint32_t flags = flagsOf(request);
  if ((flags & 0x20000000) != 0) {
    message defaults{{field::flags, 5}};
    ElementConfig().write(defaults);
    reply.insert(key::defaultCfg, defaults);
  }
  std::vector<message> page;
  std::size_t bytes = 0;
  const std::size_t most = std::min(request.get(key::maxCount, kNoId), 1000u);
  for (std::size_t k = start == kNoId ? 0 : indexOf(start); k < order.size(); ++k) {
    bytes += entryOf(order[k], flags).flat().size();
    if (page.size() == most || (!page.empty() && bytes > 16384)) {
      reply.insert(key::startId, order[k]);
      break;
    }
    page.push_back(entryOf(order[k], flags));
  }
  reply.insert(key::objects, page);
  return reply;
}

// Changes by the service.

Expected MapModel::addByService(std::uint32_t id, const ElementConfig& config, bool mayStore,
                                std::uint32_t next) {
  objects[id] = {config};
  insertAt(next == 0 ? order.size() : indexOf(next), id, mayStore || isOrdered_);
  announce(id, config);
  return done();
}

Expected MapModel::changedByService(std::uint32_t id, const ElementConfig& config, bool mayStore) {
  objects.at(id).config = config;
  if (mayStore && !config.isVolatile) store(id);
  announce(id, config);
  return done();
}

Expected MapModel::moveByService(std::uint32_t id, std::uint32_t next) {
  const std::size_t place = next == 0 ? order.size() : indexOf(next);
  if (place == indexOf(id) + 1) return done();
  moveTo(place, id);
  announce(id, objects.at(id).config);
  return done();
}

Expected MapModel::removeByService(std::uint32_t id) {
  const ElementConfig config = objects.at(id).config;
  takeOut(id);
  announce(id, config);
  return done();
}

// The store.

Expected MapModel::setAutoStore(bool on) {
  autoStore = on;
  return on ? flush() : done();
}

Expected MapModel::flush() {
  const bool before = std::exchange(autoStore, true);
  for (const std::uint32_t id : std::exchange(pending, {})) {
    if (id == kHeadId || (objects.contains(id) && isStorable(id)))
      store(id);
    else
      unstore(id);
  }
  autoStore = before;
  return done();
}

Expected MapModel::end() {
  bool isCut = false;
  for (auto id = order.rbegin(); id != order.rend() && isOrdered_; ++id) {
    if (!isStorable(*id))
      isCut = true;
    else if (isCut)
      store(*id);
  }
  return done();
}

Expected MapModel::init(std::string& prints) {
  order.clear();
  objects.clear();
  dynamic.clear();
  pending.clear();
  autoStore = true;
  passedOver_.clear();
  std::set<std::uint32_t> visited{kNoId, kHeadId};
  if (records.contains(kHeadId)) {
    std::uint32_t last = kHeadId;
    for (std::uint32_t id = records.at(kHeadId).get(key::nextId); visited.insert(id).second;) {
      const std::uint32_t next = restore(id, prints);
      if (objects.contains(id))
        last = id;
      else
        passedOver_[id] = last;
      id = next;
    }
  } else {
    for (const auto& [id, record] : std::map(records)) restore(id, prints);
    if (isOrdered_) pending.insert(kHeadId);
    if (isOrdered_) pending.insert(order.begin(), order.end());
  }
  if (objects.empty() || !isOrdered_) return done();
  Expected expected = flush();
  const auto unused = static_cast<int>(records.size()) - static_cast<int>(objects.size()) - 1;
  if (unused != 0)
    prints += "AOmap::init warning: store has " + std::to_string(unused) + " unused objects\n";
  return expected;
}

std::uint32_t MapModel::restore(std::uint32_t id, std::string& prints) {
  const message record = records.contains(id) ? records.at(id) : message();
  Entry entry;
  entry.config.read(record);
  if (takesManaged) entry.manager = managerOf(record);
  say("checkRestore", id);
  if (!refusesRestore(entry.config)) {
    objects[id] = entry;
    order.push_back(id);
    say("objAdded", id);
  } else if (isOrdered_) {
    prints += "AOmap::init error:the service says no\n";
  } else {
    prints += "AMap: load from store error: the service says no (4660)\n";
    unstore(id);
  }
  return record.get(key::nextId, kNoId);
}

std::string MapModel::chain() const {
  std::string chain = "head>";
  for (const std::uint32_t id : order)
    if (isStorable(id)) chain += std::to_string(id) + ' ' + std::to_string(id) + '>';
  return chain + "end";
}

// Small steps.

std::size_t MapModel::indexOf(std::uint32_t id) const {
  return static_cast<std::size_t>(std::find(order.begin(), order.end(), id) - order.begin());
}

std::uint32_t MapModel::idAt(std::size_t place) const {
  return place < order.size() ? order[place] : kNoId;
}

std::string MapModel::nextWord(std::size_t place) const {
  return place < order.size() ? std::to_string(order[place]) : "end";
}

std::uint32_t MapModel::nextOf(std::uint32_t id) const { return idAt(indexOf(id) + 1); }

bool MapModel::isStorable(std::uint32_t id) const { return !objects.at(id).config.isVolatile; }

std::uint32_t MapModel::storableFrom(std::size_t place) const {
  while (place < order.size() && !isStorable(order[place])) ++place;
  return idAt(place);
}

std::uint32_t MapModel::previousStorable(std::uint32_t id) const {
  for (std::size_t place = isOrdered_ ? indexOf(id) : 0; place > 0; --place)
    if (isStorable(order[place - 1])) return order[place - 1];
  return kHeadId;
}

std::uint32_t MapModel::lowestFree() const {
  for (std::uint32_t id = 1; id <= kMax; ++id)
    if (!objects.contains(id)) return id;
  return kNoId;
}

message MapModel::entryOf(std::uint32_t id, std::uint32_t flags) const {
  const Entry& entry = objects.at(id);
  message m{{key::objectId, id}, {field::flags, flags}};
  if (entry.manager != kNoId) m.insert(key::managedId, entry.manager);
  entry.config.write(m);
  return m;
}

message MapModel::recordOf(std::uint32_t id) const {
  if (id == kHeadId) return {{key::objectId, kHeadId}, {key::nextId, storableFrom(0)}};
  message m = entryOf(id, 0x80000005);
  if (isOrdered_) m.insert(key::nextId, storableFrom(indexOf(id) + 1));
  return m;
}

void MapModel::insertAt(std::size_t place, std::uint32_t id, bool mayStore) {
  order.insert(order.begin() + static_cast<std::ptrdiff_t>(place), id);
  if (!isOrdered_) std::sort(order.begin(), order.end());
  if (!mayStore || !isStorable(id)) return;
  store(id);
  store(previousStorable(id));
}

void MapModel::moveTo(std::size_t place, std::uint32_t id) {
  const std::uint32_t previous = previousStorable(id);
  const std::size_t from = indexOf(id);
  order.erase(order.begin() + static_cast<std::ptrdiff_t>(from));
  insertAt(place > from ? place - 1 : place, id);
  if (isStorable(id)) store(previous);
}

void MapModel::takeOut(std::uint32_t id) {
  const bool storable = isStorable(id);
  const std::uint32_t previous = previousStorable(id);
  if (isOrdered_ ? records.contains(id) : storable) unstore(id);
  order.erase(order.begin() + static_cast<std::ptrdiff_t>(indexOf(id)));
  objects.erase(id);
  dynamic.erase(id);
  if (storable) store(previous);
}

void MapModel::store(std::uint32_t id) {
  if (id == kHeadId && !isOrdered_) return;
  if (autoStore) {
    say("store", id);
    records[id] = recordOf(id);
  } else {
    pending.insert(id);
  }
  closeGap(id);
}

/// Whoever led to a record that was passed over leads to an object once there is another one.
void MapModel::closeGap(std::uint32_t id) {
  const auto gap = passedOver_.find(id);
  if (gap == passedOver_.end()) return;
  const std::uint32_t before = gap->second;
  passedOver_.erase(gap);
  if (before == kHeadId || (objects.contains(before) && isStorable(before))) store(before);
}

/// A record that an order does without goes at once.
void MapModel::unstore(std::uint32_t id) {
  if (!autoStore && !isOrdered_) return void(pending.insert(id));
  say("unstore", id);
  records.erase(id);
  closeGap(id);
}

void MapModel::announce(std::uint32_t id, const ElementConfig& config) {
  if (!config.isSilent) say("notify", id);
}

void MapModel::publish(const Entry& entry, const char* what, message undo) {
  if (!isUndoable(entry.config) || entry.manager != kNoId) return;
  say("undo " + (entry.config.text.empty() ? "item" : entry.config.text) + what);
  undo_ = std::move(undo);
}

void MapModel::check(const std::string& word, std::uint32_t id, std::size_t next) {
  say(word + ' ' + std::to_string(id) + (isOrdered_ ? '>' + nextWord(next) : ""));
}

void MapModel::say(const std::string& word, std::uint32_t id) {
  say(word + ' ' + std::to_string(id));
}

void MapModel::say(const std::string& words) { line_ += (line_.empty() ? "" : ", ") + words; }

Expected MapModel::done(message reply) {
  return {std::move(reply), std::exchange(line_, ""), std::exchange(undo_, std::nullopt)};
}

}  // namespace test
