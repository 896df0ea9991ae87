#include "tests/support/omap_model.h"

#include <algorithm>
#include <utility>

#include "platform/commands.h"

namespace test {

namespace key = nv::key;
namespace cmd = nv::cmd;
using nv::kHeadId;
using nv::kNoId;
using nv::message;

Expected AOmapModel::command(const message& request) {
  message reply;
  switch (request.get(key::command)) {
    case cmd::addObj: reply = add(request); break;
    case cmd::setObj: reply = set(request); break;
    case cmd::removeObj: reply = remove(request); break;
    case cmd::moveObj: reply = move(request); break;
    case cmd::getObj: reply = getOne(request); break;
    case cmd::getAll: reply = getAll(request); break;
    default: break;
  }
  say("reply");
  return done(std::move(reply));
}

message AOmapModel::add(const message& request) {
  const auto place = placeOf(request);
  if (!place) return nv::errorMsg(nv::err::noSuchPosition, "");
  std::uint32_t id = request.get(key::objectId, kNoId);
  if (id == kNoId) {
    id = lowestFree();
    if (id == kNoId) return nv::errorMsg(nv::err::idInUse, "");
  } else if (id < 1 || id > kMax) {
    return nv::errorMsg(nv::err::noSuchObject, "");
  } else if (objects.contains(id)) {
    return nv::errorMsg(nv::err::idInUse, "");
  }
  ElementConfig config;
  config.read(request);
  say("checkAdd " + std::to_string(id) + '>' + nextWord(*place));
  if (refusesConfig(config)) return serviceRefusal();

  if (request.get(key::dynamic) && isSystem(request)) dynamic.insert(id);
  objects[id] = config;
  insertAt(*place, id);
  say("objAdded", id);
  announce(id, config);
  publish(config, " added", {{key::command, cmd::removeObj}, {key::objectId, id}});
  return {{key::objectId, id}};
}

message AOmapModel::set(const message& request) {
  if (auto no = refusal(request, "can't edit dynamic object")) return *no;
  const std::uint32_t id = request.get(key::objectId);
  ElementConfig& config = objects.at(id);
  const ElementConfig before = config;
  config.read(request);
  say("checkChange " + std::to_string(id) + '>' + nextWord(indexOf(id) + 1));
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
    publish(config, " changed", undo);
  }
  return {};
}

message AOmapModel::remove(const message& request) {
  if (auto no = refusal(request, "can't remove dynamic object")) return *no;
  const std::uint32_t id = request.get(key::objectId);
  const ElementConfig config = objects.at(id);
  say("checkRemove " + std::to_string(id) + '>' + nextWord(indexOf(id) + 1));
  if (refusesRemove(config)) return serviceRefusal();
  message undo{{key::command, cmd::addObj}, {key::objectId, id}, {key::nextId, nextOf(id)}};
  config.write(undo);
  const std::uint32_t previous = previousStorable(id);
  order.erase(order.begin() + static_cast<std::ptrdiff_t>(indexOf(id)));
  objects.erase(id);
  dynamic.erase(id);
  if (records.contains(id)) unstore(id);
  if (!config.isVolatile) store(previous);
  say("objRemoved", id);
  announce(id, config);
  publish(config, " removed", undo);
  return {};
}

message AOmapModel::move(const message& request) {
  const std::uint32_t id = request.get(key::objectId, kNoId);
  if (!objects.contains(id)) return nv::errorMsg(nv::err::noSuchObject, "");
  const std::size_t place = placeOf(request).value_or(order.size());
  if (place == indexOf(id))
    return nv::errorMsg(nv::err::badCommand, "can not move object before itself");
  say("checkMove " + std::to_string(id) + '>' + nextWord(indexOf(id) + 1) + " to " +
      nextWord(place));
  const ElementConfig& config = objects.at(id);
  const message undo{{key::command, cmd::moveObj}, {key::objectId, id}, {key::nextId, nextOf(id)}};
  moveTo(place, id);
  say("objMoved", id);
  announce(id, config);
  publish(config, " moved", undo);
  return {};
}

std::optional<message> AOmapModel::refusal(const message& request, const char* dynamicText) const {
  const std::uint32_t id = request.get(key::objectId, kNoId);
  if (!objects.contains(id)) return nv::errorMsg(nv::err::noSuchObject, "");
  if (!isSystem(request) && dynamic.contains(id)) return nv::failedMsg(dynamicText);
  return std::nullopt;
}

std::optional<std::size_t> AOmapModel::placeOf(const message& request) const {
  const std::uint32_t position = request.get(key::nextId, kNoId);
  if (position == 0) return 0;
  if (position == kNoId) return order.size();
  const auto at = std::find(order.begin(), order.end(), position);
  if (at == order.end()) return std::nullopt;
  return static_cast<std::size_t>(at - order.begin());
}

message AOmapModel::getOne(const message& request) const {
  const std::uint32_t id = request.get(key::objectId, kNoId);
  if (!objects.contains(id)) return nv::errorMsg(nv::err::noSuchObject, "");
  message reply{{key::nextId, nextOf(id)}};
  objects.at(id).write(reply);
  return reply;
}

message AOmapModel::getAll(const message& request) const {
  const std::uint32_t start = request.get(key::startId, kNoId);
  if (start != kNoId && !objects.contains(start)) return nv::errorMsg(nv::err::noSuchObject, "");
  message reply;
  if ((request.get(key::getFlags, 5) & 0x20000000) != 0) {
    message defaults;
    ElementConfig().write(defaults);
    reply.insert(key::defaultCfg, defaults);
  }
  std::vector<message> page;
  std::size_t bytes = 0;
  const std::size_t most = std::min(request.get(key::maxCount, kNoId), 1000u);
  for (std::size_t k = start == kNoId ? 0 : indexOf(start); k < order.size(); ++k) {
    bytes += entryOf(order[k]).flat().size();
    if (page.size() == most || (!page.empty() && bytes > 16384)) {
      reply.insert(key::startId, order[k]);
      break;
    }
    page.push_back(entryOf(order[k]));
  }
  reply.insert(key::objects, page);
  return reply;
}

// Changes by the service.

Expected AOmapModel::addByService(std::uint32_t id, const ElementConfig& config,
                                  std::uint32_t next) {
  objects[id] = config;
  insertAt(next == 0 ? order.size() : indexOf(next), id);
  announce(id, config);
  return done();
}

Expected AOmapModel::changedByService(std::uint32_t id, const ElementConfig& config,
                                      bool mayStore) {
  objects.at(id) = config;
  if (mayStore && !config.isVolatile) store(id);
  announce(id, config);
  return done();
}

Expected AOmapModel::moveByService(std::uint32_t id, std::uint32_t next) {
  const std::size_t place = next == 0 ? order.size() : indexOf(next);
  if (place == indexOf(id) + 1) return done();
  moveTo(place, id);
  announce(id, objects.at(id));
  return done();
}

Expected AOmapModel::removeByService(std::uint32_t id) {
  const ElementConfig config = objects.at(id);
  if (records.contains(id)) unstore(id);
  const std::uint32_t previous = previousStorable(id);
  order.erase(order.begin() + static_cast<std::ptrdiff_t>(indexOf(id)));
  objects.erase(id);
  dynamic.erase(id);
  if (!config.isVolatile) store(previous);
  announce(id, config);
  return done();
}

// The store.

Expected AOmapModel::setAutoStore(bool on) {
  autoStore = on;
  return on ? flush() : done();
}

Expected AOmapModel::flush() {
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

Expected AOmapModel::end() {
  bool isCut = false;
  for (auto id = order.rbegin(); id != order.rend(); ++id) {
    if (!isStorable(*id))
      isCut = true;
    else if (isCut)
      store(*id);
  }
  return done();
}

Expected AOmapModel::init(std::string& prints) {
  order.clear();
  objects.clear();
  dynamic.clear();
  pending.clear();
  autoStore = true;
  std::set<std::uint32_t> visited{kNoId, kHeadId};
  const bool isChained = records.contains(kHeadId);
  if (isChained) {
    for (std::uint32_t id = records.at(kHeadId).get(key::nextId); visited.insert(id).second;)
      id = restore(id, prints);
  } else {
    for (const auto& [id, record] : records) restore(id, prints);
    for (const auto& [id, config] : objects) pending.insert(id);
    pending.insert(kHeadId);
  }
  if (objects.empty()) return done();
  Expected expected = flush();
  const auto unused = static_cast<int>(records.size()) - static_cast<int>(objects.size()) - 1;
  if (unused != 0)
    prints += "AOmap::init warning: store has " + std::to_string(unused) + " unused objects\n";
  return expected;
}

std::uint32_t AOmapModel::restore(std::uint32_t id, std::string& prints) {
  const message record = records.contains(id) ? records.at(id) : message();
  ElementConfig config;
  config.read(record);
  say("checkRestore", id);
  if (refusesRestore(config)) {
    prints += "AOmap::init error:the service says no\n";
  } else {
    objects[id] = config;
    order.push_back(id);
    say("objAdded", id);
  }
  return record.get(key::nextId, kNoId);
}

std::string AOmapModel::chain() const {
  std::string chain = "head>";
  for (const std::uint32_t id : order)
    if (isStorable(id)) chain += std::to_string(id) + ' ' + std::to_string(id) + '>';
  return chain + "end";
}

// Small steps.

std::size_t AOmapModel::indexOf(std::uint32_t id) const {
  return static_cast<std::size_t>(std::find(order.begin(), order.end(), id) - order.begin());
}

std::string AOmapModel::nextWord(std::size_t place) const {
  return place < order.size() ? std::to_string(order[place]) : "end";
}

std::uint32_t AOmapModel::nextOf(std::uint32_t id) const {
  const std::size_t place = indexOf(id) + 1;
  return place < order.size() ? order[place] : kNoId;
}

bool AOmapModel::isStorable(std::uint32_t id) const { return !objects.at(id).isVolatile; }

std::uint32_t AOmapModel::storableFrom(std::size_t place) const {
  while (place < order.size() && !isStorable(order[place])) ++place;
  return place < order.size() ? order[place] : kNoId;
}

std::uint32_t AOmapModel::previousStorable(std::uint32_t id) const {
  for (std::size_t place = indexOf(id); place > 0; --place)
    if (isStorable(order[place - 1])) return order[place - 1];
  return kHeadId;
}

std::uint32_t AOmapModel::lowestFree() const {
  for (std::uint32_t id = 1; id <= kMax; ++id)
    if (!objects.contains(id)) return id;
  return kNoId;
}

message AOmapModel::entryOf(std::uint32_t id) const {
  message m{{key::objectId, id}};
  objects.at(id).write(m);
  return m;
}

message AOmapModel::recordOf(std::uint32_t id) const {
  if (id == kHeadId) return {{key::objectId, kHeadId}, {key::nextId, storableFrom(0)}};
  message m = entryOf(id);
  m.insert(key::nextId, storableFrom(indexOf(id) + 1));
  return m;
}

void AOmapModel::insertAt(std::size_t place, std::uint32_t id) {
  order.insert(order.begin() + static_cast<std::ptrdiff_t>(place), id);
  if (!isStorable(id)) return;
  store(id);
  store(previousStorable(id));
}

void AOmapModel::moveTo(std::size_t place, std::uint32_t id) {
  const std::uint32_t previous = previousStorable(id);
  const std::size_t from = indexOf(id);
  order.erase(order.begin() + static_cast<std::ptrdiff_t>(from));
  insertAt(place > from ? place - 1 : place, id);
  if (isStorable(id)) store(previous);
}

void AOmapModel::store(std::uint32_t id) {
  if (!autoStore) return void(pending.insert(id));
  say("store", id);
  records[id] = recordOf(id);
}

void AOmapModel::unstore(std::uint32_t id) {
  say("unstore", id);
  records.erase(id);
}

void AOmapModel::announce(std::uint32_t id, const ElementConfig& config) {
  if (!config.isSilent) say("notify", id);
}

void AOmapModel::publish(const ElementConfig& config, const char* what, message undo) {
  if (!isUndoable(config)) return;
  say("undo " + nameOf(config) + what);
  undo_ = std::move(undo);
}

void AOmapModel::say(const std::string& word, std::uint32_t id) {
  say(word + ' ' + std::to_string(id));
}

void AOmapModel::say(const std::string& words) { line_ += (line_.empty() ? "" : ", ") + words; }

Expected AOmapModel::done(message reply) {
  return {std::move(reply), std::exchange(line_, ""), std::exchange(undo_, std::nullopt)};
}

}  // namespace test
