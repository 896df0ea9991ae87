#include "containers/amap.h"

#include <cassert>
#include <memory>
#include <string>

#include "containers/apply.h"
#include "containers/error_texts.h"
#include "containers/ids.h"
#include "containers/request.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/keys.h"

using nv::ErrorText;
using nv::message;

namespace {

bool publishesUndo(Object& obj) { return obj.managedId() == nv::kNoId && obj.isUndoable(); }

void addManagedId(message& out, Object& obj) {
  const std::uint32_t managedId = obj.managedId();
  if (managedId != nv::kNoId) out.insert(nv::key::managedId, managedId);
}

message undoOfRemove(Object& obj) {
  message undo;
  nv::addressUndo(undo, nv::cmd::addObj, obj.id);
  obj.getConfig(undo, nv::kDefaultFlags);
  return undo;
}

}  // namespace

// Reading.

message AMap::cmdGetObj(const message& request, std::uint32_t id) {
  Object* const obj = objects.get(id);
  if (obj == nullptr) return nv::refusal(nv::err::noSuchObject);
  message reply;
  addManagedId(reply, *obj);
  obj->getConfig(reply, nv::clientFlags(nv::getFlagsOf(request)));
  reply.insert(nv::key::objectId, obj->id);
  return reply;
}

message AMap::cmdGetAll(const message& request, std::uint32_t startId, std::uint32_t count) {
  const bool fromFirst = startId == nv::kNoId;
  if (!fromFirst && !objects.contains(startId)) return nv::refusal(nv::err::noSuchObject);

  const std::uint32_t flags = nv::getFlagsOf(request);
  message reply;
  if ((flags & nv::kDefaultCfgBit) != 0) reply.insert(nv::key::defaultCfg, getDefaultCfg());

  auto page = nv::pageFor(count);
  auto at = fromFirst ? objects.begin() : objects.lower_bound(startId);
  while (page.wantsMore() && at != objects.end() &&
         page.take(recordOf(*at->second, nv::clientFlags(flags)))) {
    ++at;
  }
  page.writeTo(reply);
  if (at != objects.end()) reply.insert(nv::key::startId, at->first);
  return reply;
}

message AMap::getObject(std::uint32_t id, std::uint32_t flags) {
  Object* const obj = objects.get(id);
  if (obj == nullptr) return {{nv::key::objectId, id}, {nv::key::absent, 1}};
  return recordOf(*obj, flags);
}

std::uint32_t AMap::objectCount() { return static_cast<std::uint32_t>(objects.size()); }

message AMap::getDefaultCfg() { return nv::defaultConfig(std::unique_ptr<Object>(newObject())); }

// Changing by command.

message AMap::cmdAddObj(const message& request) {
  const std::uint32_t managedId = nv::managedIdOf(request);
  if (managedId != nv::kNoId && !acceptsManaged()) return nv::refusal(ErrorText::cantCreateManaged);
  std::uint32_t id = request.get(nv::key::objectId, nv::kNoId);
  if (const unsigned error = nv::claimId(*this, id)) return nv::refusal(error);

  std::unique_ptr<Object> added{newObject()};
  Object* const obj = added.get();
  obj->id = id;
  obj->setManagedId(managedId);
  nv::apply(*obj, request, nv::kDefaultFlags, nv::applyMode(mergeOnSet()));

  message reply = checkAdd(obj);
  if (nv::isError(reply)) {
    freeId(id);
    return reply;
  }
  // Only an id that the service itself gave out twice is in the map by now.
  if (!objects.emplace(id, obj).second) return nv::refusal(nv::err::idInUse);
  added.release();
  if (request.get(nv::key::dynamic) && nv::isFromSystem(request)) dynamicIds.insert(id);
  if (obj->isStorable()) storeObj(obj);
  objAdded(obj);
  if (holds(id, obj)) tellAdded(request, *obj);
  reply.insert(nv::key::objectId, id);
  return reply;
}

void AMap::tellAdded(const message& request, Object& obj) {
  if (obj.isNotifying()) nv::announce(*this, obj.id);
  if (!publishesUndo(obj)) return;
  message undo;
  nv::addressUndo(undo, nv::cmd::removeObj, obj.id);
  sendUndo(request, undo, obj.name() + " added");
}

message AMap::cmdSetObj(const message& request, std::uint32_t id) {
  Object* const obj = objects.get(id);
  if (obj == nullptr) return nv::refusal(nv::err::noSuchObject);
  if (nv::managedIdOf(request) != obj->managedId())
    return nv::refusal(ErrorText::cantChangeManaged);
  if (nv::isProtected(dynamicIds, request, id)) return nv::refusal(ErrorText::cantEditDynamic);

  const bool undoable = publishesUndo(*obj);
  const std::unique_ptr<Object> old{newObject()};
  copyObject(old.get(), obj);
  message undo = nv::applySet(*obj, request, nv::applyMode(mergeOnSet()), undoable);

  message reply = checkChange(old.get(), obj);
  if (!holds(id, obj)) return reply;
  if (nv::isError(reply)) {
    copyObject(obj, old.get());
    return reply;
  }
  storeChange(*old, *obj);
  objChanged(old.get(), obj);
  if (!holds(id, obj)) return reply;
  if (obj->isNotifying()) nv::announce(*this, id);
  if (undoable && obj->isUndoable()) {
    nv::addressUndo(undo, nv::cmd::setObj, id);
    sendUndo(request, undo, obj->name() + " changed");
  }
  return reply;
}

message AMap::cmdRemoveObj(const message& request, std::uint32_t id) {
  Object* const obj = objects.get(id);
  if (obj == nullptr) return nv::refusal(nv::err::noSuchObject);
  if (nv::managedIdOf(request) != obj->managedId())
    return nv::refusal(ErrorText::cantChangeManaged);
  if (nv::isProtected(dynamicIds, request, id)) return nv::refusal(ErrorText::cantRemoveDynamic);

  const bool stored = obj->isStorable();
  const bool undoable = publishesUndo(*obj);
  const bool notifying = obj->isNotifying();
  const message undo = undoable ? undoOfRemove(*obj) : message();

  message reply = checkRemove(obj);
  if (nv::isError(reply) || !holds(id, obj)) return reply;
  std::unique_ptr<Object> removed = takeOut(id);
  if (stored) removeObj(id);
  dynamicIds.erase(id);
  objRemoved(obj);
  const std::string name = obj->name();
  removed.reset();
  if (notifying) nv::announce(*this, id);
  if (undoable) sendUndo(request, undo, name + " removed");
  return reply;
}

// Changing by the service.

AMapIterator AMap::add(Object* obj, bool mayStore) {
  if (!nv::claimOwnId(*this, *obj)) {
    delete obj;
    return end();
  }
  const auto [at, isNew] = objects.emplace(obj->id, obj);
  assert(isNew);
  if (isNew) changed(obj, mayStore);
  return AMapIterator(at);
}

void AMap::changed(Object* obj, bool mayStore) {
  if (mayStore && obj->isStorable()) storeObj(obj);
  if (obj->isNotifying()) nv::announce(*this, obj->id);
}

void AMap::remove(AMapIterator at) {
  const std::uint32_t id = at.get()->id;
  if (at.get()->isStorable()) removeObj(id);
  const std::unique_ptr<Object> removed = takeOut(id);
  dynamicIds.erase(id);
  if (removed->isNotifying()) nv::announce(*this, id);
}

// Ids.

bool AMap::isIdAllocated(std::uint32_t id) { return ids.isAllocated(id); }

std::uint32_t AMap::allocateId() { return ids.allocate(); }

std::uint32_t AMap::allocateId(std::uint32_t id) { return ids.allocate(id); }

void AMap::freeId(std::uint32_t id) { ids.free(id); }

// What a service may leave as it is.

bool AMap::mergeOnSet() { return false; }

bool AMap::acceptsManaged() { return false; }

// Small steps.

message AMap::recordOf(Object& obj, std::uint32_t flags) {
  message record;
  record.insert(nv::key::objectId, obj.id);
  addManagedId(record, obj);
  obj.getConfig(record, flags);
  return record;
}

/// Takes the object out of the map without deleting it.
std::unique_ptr<Object> AMap::takeOut(std::uint32_t id) {
  std::unique_ptr<Object> obj{objects.take(id)};
  freeId(id);
  return obj;
}
