#include "tests/support/amap_model.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/keys.h"

namespace test {

namespace key = nv::key;
namespace cmd = nv::cmd;
using nv::kNoId;
using nv::message;

Expected AMapModel::command(const message& request) {
  message reply;
  switch (request.get(key::command)) {
    case cmd::addObj: reply = add(request); break;
    case cmd::setObj: reply = set(request); break;
    case cmd::removeObj: reply = remove(request); break;
    case cmd::getObj: reply = getOne(request); break;
    case cmd::getAll: reply = getAll(request); break;
    case cmd::getCount: reply.insert(key::count, static_cast<std::uint32_t>(objects.size())); break;
    default: break;
  }
  say("reply");
  return done(std::move(reply));
}

message AMapModel::add(const message& request) {
  const std::uint32_t manager = request.get(key::managedId, kNoId);
  if (manager != kNoId && !takesManaged) return nv::failedMsg("can not create managed object");
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
  say("checkAdd", id);
  if (refusesConfig(config)) return serviceRefusal();

  objects[id] = {config, manager};
  if (request.get(key::dynamic) && isSystem(request)) dynamic.insert(id);
  if (!config.isVolatile) store(id);
  say("objAdded", id);
  announce(id, config);
  if (isUndoable(config) && manager == kNoId) {
    say("undo " + nameOf(config) + " added");
    undo_ = message{{key::command, cmd::removeObj}, {key::objectId, id}};
  }
  return {{key::objectId, id}};
}

message AMapModel::set(const message& request) {
  if (auto no = refusal(request, "can't edit dynamic object")) return *no;
  const std::uint32_t id = request.get(key::objectId);
  Entry& entry = objects.at(id);
  const ElementConfig before = entry.config;
  entry.config.read(request);
  say("checkChange", id);
  if (refusesConfig(entry.config)) {
    entry.config = before;
    return serviceRefusal();
  }
  if (!entry.config.isVolatile)
    store(id);
  else if (!before.isVolatile)
    unstore(id);
  say("objChanged", id);
  announce(id, entry.config);
  if (entry.manager == kNoId && isUndoable(before) && isUndoable(entry.config)) {
    say("undo " + nameOf(entry.config) + " changed");
    undo_ = difference(before, entry.config);
    undo_->merge(message{{key::command, cmd::setObj}, {key::objectId, id}});
  }
  return {};
}

message AMapModel::remove(const message& request) {
  if (auto no = refusal(request, "can't remove dynamic object")) return *no;
  const std::uint32_t id = request.get(key::objectId);
  const Entry entry = objects.at(id);
  say("checkRemove", id);
  if (refusesRemove(entry.config)) return serviceRefusal();
  objects.erase(id);
  dynamic.erase(id);
  if (!entry.config.isVolatile) unstore(id);
  say("objRemoved", id);
  announce(id, entry.config);
  if (isUndoable(entry.config) && entry.manager == kNoId) {
    say("undo " + nameOf(entry.config) + " removed");
    undo_ = message{{key::command, cmd::addObj}, {key::objectId, id}};
    entry.config.write(*undo_);
  }
  return {};
}

std::optional<message> AMapModel::refusal(const message& request, const char* dynamicText) const {
  const std::uint32_t id = request.get(key::objectId, kNoId);
  if (!objects.contains(id)) return nv::errorMsg(nv::err::noSuchObject, "");
  if (request.get(key::managedId, kNoId) != objects.at(id).manager)
    return nv::failedMsg("can not change managed object");
  if (!isSystem(request) && dynamic.contains(id)) return nv::failedMsg(dynamicText);
  return std::nullopt;
}

message AMapModel::getOne(const message& request) {
  const std::uint32_t id = request.get(key::objectId, kNoId);
  return objects.contains(id) ? entryOf(id) : nv::errorMsg(nv::err::noSuchObject, "");
}

message AMapModel::getAll(const message& request) {
  std::vector<std::uint32_t> wanted;
  const std::uint32_t start = request.get(key::startId, kNoId);
  if (start != kNoId && !objects.contains(start)) return nv::errorMsg(nv::err::noSuchObject, "");
  for (const auto& [id, entry] : objects)
    if (start == kNoId || id >= start) wanted.push_back(id);

  message reply;
  if ((request.get(key::getFlags, 5) & 0x20000000) != 0) {
    message defaults;
    ElementConfig().write(defaults);
    reply.insert(key::defaultCfg, defaults);
  }
  std::vector<message> page;
  std::size_t bytes = 0;
  const std::size_t most = std::min(request.get(key::maxCount, kNoId), 1000u);
  for (const std::uint32_t id : wanted) {
    bytes += entryOf(id).flat().size();
    if (page.size() == most || (!page.empty() && bytes > 16384)) {
      reply.insert(key::startId, id);
      break;
    }
    page.push_back(entryOf(id));
  }
  reply.insert(key::objects, page);
  return reply;
}

Expected AMapModel::addByService(std::uint32_t id, const ElementConfig& config, bool mayStore) {
  if (id == kNoId) id = lowestFree();
  objects[id] = {config};
  return changedByService(id, config, mayStore);
}

Expected AMapModel::changedByService(std::uint32_t id, const ElementConfig& config, bool mayStore) {
  objects.at(id).config = config;
  if (mayStore && !config.isVolatile) store(id);
  announce(id, config);
  return done();
}

Expected AMapModel::removeByService(std::uint32_t id) {
  const ElementConfig config = objects.at(id).config;
  if (!config.isVolatile) unstore(id);
  objects.erase(id);
  dynamic.erase(id);
  announce(id, config);
  return done();
}

Expected AMapModel::setAutoStore(bool on) {
  autoStore = on;
  return on ? flush() : done();
}

Expected AMapModel::flush() {
  const bool before = std::exchange(autoStore, true);
  for (const std::uint32_t id : std::exchange(pending, {})) {
    if (objects.contains(id) && !objects.at(id).config.isVolatile)
      store(id);
    else
      unstore(id);
  }
  autoStore = before;
  return done();
}

Expected AMapModel::restart(bool takesManagedNow, unsigned& printedLines) {
  takesManaged = takesManagedNow;
  objects.clear();
  dynamic.clear();
  pending.clear();
  autoStore = true;
  for (const auto& [id, record] : std::map(records)) {
    Entry entry;
    entry.config.read(record);
    if (takesManaged) entry.manager = record.get(key::managedId, kNoId);
    say("checkRestore", id);
    if (refusesRestore(entry.config)) {
      ++printedLines;
      unstore(id);
    } else {
      objects[id] = entry;
      say("objAdded", id);
    }
  }
  return done();
}

std::uint32_t AMapModel::lowestFree() const {
  for (std::uint32_t id = 1; id <= kMax; ++id)
    if (!objects.contains(id)) return id;
  return kNoId;
}

message AMapModel::entryOf(std::uint32_t id) const {
  const Entry& entry = objects.at(id);
  message m{{key::objectId, id}};
  if (entry.manager != kNoId) m.insert(key::managedId, entry.manager);
  entry.config.write(m);
  return m;
}

void AMapModel::store(std::uint32_t id) {
  if (!autoStore) return void(pending.insert(id));
  say("store", id);
  records[id] = entryOf(id);
}

void AMapModel::unstore(std::uint32_t id) {
  if (!autoStore) return void(pending.insert(id));
  say("unstore", id);
  records.erase(id);
}

void AMapModel::announce(std::uint32_t id, const ElementConfig& config) {
  if (!config.isSilent) say("notify", id);
}

void AMapModel::say(const std::string& word, std::uint32_t id) {
  say(word + ' ' + std::to_string(id));
}

void AMapModel::say(const std::string& words) { line_ += (line_.empty() ? "" : ", ") + words; }

Expected AMapModel::done(message reply) {
  return {std::move(reply), std::exchange(line_, ""), std::exchange(undo_, std::nullopt)};
}

}  // namespace test
