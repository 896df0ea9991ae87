#include "containers/omap.h"

#include <cassert>
#include <memory>
#include <string>
#include <utility>

#include "containers/apply.h"
#include "containers/error_texts.h"
#include "containers/request.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/keys.h"

using nv::ErrorText;
using nv::message;

namespace {

message refusal(unsigned code) { return nv::errorMsg(code, ""); }
message refusal(ErrorText text) { return nv::failedMsg(nv::errorText(text)); }

std::uint32_t positionOf(const message& request) { return request.get(nv::key::nextId, nv::kNoId); }

}  // namespace

// Reading.

message AOmap::cmdGetObj(const message& request, std::uint32_t id) {
  OObject* const obj = objects.get(id);
  if (obj == nullptr) return refusal(nv::err::noSuchObject);
  message reply = nv::configOf(*obj, nv::clientFlags(nv::getFlagsOf(request)));
  addNextId(reply, obj);
  return reply;
}

message AOmap::cmdGetAll(const message& request, std::uint32_t startId, std::uint32_t count) {
  const bool fromFirst = startId == nv::kNoId;
  if (!fromFirst && !objects.contains(startId)) return refusal(nv::err::noSuchObject);

  const std::uint32_t flags = nv::getFlagsOf(request);
  message reply;
  if ((flags & nv::kDefaultCfgBit) != 0) reply.insert(nv::key::defaultCfg, getDefaultCfg());

  auto page = nv::pageFor(count);
  OObject* obj = fromFirst ? head.next : targetAgain(startId);
  message record;  // keeps its memory from object to object
  while (page.wantsMore() && obj != &head) {
    record.clear();
    record.insert(nv::key::objectId, obj->id);
    obj->getConfig(record, nv::clientFlags(flags));
    if (!page.take(record)) break;
    obj = obj->next;
  }
  page.writeTo(reply);
  if (obj != &head) reply.insert(nv::key::startId, obj->id);
  return reply;
}

message AOmap::getObject(std::uint32_t id, std::uint32_t flags) {
  OObject* const obj = objects.get(id);
  message out{{nv::key::objectId, id}};
  if (obj == nullptr) return std::move(out.insert(nv::key::absent, 1));
  obj->getConfig(out, flags);
  addNextId(out, obj);
  return out;
}

std::uint32_t AOmap::objectCount() { return static_cast<std::uint32_t>(objects.size()); }

message AOmap::getDefaultCfg() { return nv::defaultConfig(std::unique_ptr<Object>(newObject())); }

// Changing by command.

message AOmap::cmdAddObj(const message& request) {
  const OObject* const target = targetOf(positionOf(request));
  if (target == nullptr) return refusal(nv::err::noSuchPosition);
  const std::uint32_t targetId = target->id;
  std::uint32_t id = request.get(nv::key::objectId, nv::kNoId);
  if (const unsigned error = claimId(id)) return refusal(error);

  std::unique_ptr<OObject> added{newObject()};
  OObject* const obj = added.get();
  nv::apply(*obj, request, nv::kDefaultFlags, nv::applyMode(mergeOnSet()));
  obj->id = id;

  message reply = checkAdd(obj, nullAtEnd(targetAgain(targetId)));
  if (nv::isError(reply)) {
    freeId(id);
    return reply;
  }
  // Only an id that the service itself gave out twice is in the map by now.
  if (objects.contains(id)) return refusal(nv::err::idInUse);
  link(obj, targetAgain(targetId));
  if (request.get(nv::key::dynamic) && nv::isFromSystem(request)) dynamicIds.insert(id);
  storeAdded(obj);
  objects.emplace(id, added.release());
  objAdded(obj);
  if (holds(id, obj)) tellAdded(request, *obj);
  reply.insert(nv::key::objectId, id);
  return reply;
}

void AOmap::tellAdded(const message& request, OObject& obj) {
  if (obj.isNotifying()) nv::announce(*this, obj.id);
  if (!obj.isUndoable()) return;
  message undo;
  nv::addressUndo(undo, nv::cmd::removeObj, obj.id);
  sendUndo(request, undo, obj.name() + " added");
}

message AOmap::cmdSetObj(const message& request, std::uint32_t id) {
  OObject* const obj = objects.get(id);
  if (obj == nullptr) return refusal(nv::err::noSuchObject);
  if (isProtected(request, id)) return refusal(ErrorText::cantEditDynamic);

  const std::unique_ptr<OObject> old{newObject()};
  copyObject(old.get(), obj);
  const bool undoable = obj->isUndoable();
  message undo = nv::applySet(*obj, request, nv::applyMode(mergeOnSet()), undoable);

  message reply = checkChange(old.get(), obj, getNextObj(obj));
  if (!holds(id, obj)) return reply;
  if (nv::isError(reply)) {
    copyObject(obj, old.get());
    return reply;
  }
  storeChange(*old, *obj);
  objChanged(old.get(), obj);
  if (!holds(id, obj)) return reply;
  if (obj->isNotifying()) nv::announce(*this, id);
  if (obj->isUndoable() && old->isUndoable()) {
    nv::addressUndo(undo, nv::cmd::setObj, id);
    sendUndo(request, undo, obj->name() + " changed");
  }
  return reply;
}

message AOmap::cmdRemoveObj(const message& request, std::uint32_t id) {
  OObject* const obj = objects.get(id);
  if (obj == nullptr) return refusal(nv::err::noSuchObject);
  if (isProtected(request, id)) return refusal(ErrorText::cantRemoveDynamic);

  const bool stored = obj->isStorable();
  const bool undoable = obj->isUndoable();
  const bool notifying = obj->isNotifying();
  const message undo = undoable ? undoOfRemove(obj) : message();

  message reply = checkRemove(obj, getNextObj(obj));
  if (nv::isError(reply) || !holds(id, obj)) return reply;
  std::unique_ptr<OObject> removed = takeOut(obj, stored);
  objRemoved(obj);
  const std::string name = obj->name();
  removed.reset();
  if (notifying) nv::announce(*this, id);
  if (undoable) sendUndo(request, undo, name + " removed");
  return reply;
}

message AOmap::undoOfRemove(OObject* obj) {
  message undo;
  nv::addressUndo(undo, nv::cmd::addObj, obj->id);
  addNextId(undo, obj);
  obj->getConfig(undo, nv::kDefaultFlags);
  return undo;
}

message AOmap::cmdMoveObj(const message& request, std::uint32_t id) {
  OObject* const obj = objects.get(id);
  if (obj == nullptr) return refusal(nv::err::noSuchObject);
  OObject* target = targetOf(positionOf(request));
  if (target == nullptr) target = &head;
  if (target == obj)
    return nv::errorMsg(nv::err::badCommand, nv::errorText(ErrorText::cantMoveBeforeItself));
  const std::uint32_t targetId = target->id;

  message reply = checkMove(obj, getNextObj(obj), nullAtEnd(target));
  if (nv::isError(reply) || !holds(id, obj)) return reply;
  const bool undoable = obj->isUndoable();
  message undo;
  if (undoable) {
    nv::addressUndo(undo, nv::cmd::moveObj, id);
    addNextId(undo, obj);
  }
  relink(obj, targetAgain(targetId));
  objMoved(obj);
  if (!holds(id, obj)) return reply;
  if (obj->isNotifying()) nv::announce(*this, id);
  if (undoable && obj->isUndoable()) sendUndo(request, undo, obj->name() + " moved");
  return reply;
}

// Changing by the service.

AOmapIterator AOmap::add(OObject* obj, OObject* next) {
  if (obj->id == nv::kNoId) {
    obj->id = allocateId();
  } else {
    allocateId(obj->id);
  }
  if (obj->id == nv::kNoId) {
    delete obj;
    return end();
  }
  const auto [at, isNew] = objects.emplace(obj->id, obj);
  assert(isNew);
  if (isNew) {
    link(obj, next == nullptr ? &head : next);
    storeAdded(obj);
    if (obj->isNotifying()) nv::announce(*this, obj->id);
  }
  return AOmapIterator(at);
}

void AOmap::remove(AOmapIterator at) {
  OObject* const obj = at.get();
  const std::uint32_t id = obj->id;
  if (store != nullptr && store->has(id)) store->remove(id);
  OObject* const previous = findPrevStorable(obj);
  const std::unique_ptr<OObject> removed = unlist(obj);
  if (obj->isStorable()) storeObj(previous);
  freeId(id);
  dynamicIds.erase(id);
  if (obj->isNotifying()) nv::announce(*this, id);
}

void AOmap::move(OObject* obj, OObject* next) {
  if (next == nullptr) next = &head;
  if (obj->next == next) return;
  assert(obj != next);
  if (obj == next) return;
  relink(obj, next);
  if (obj->isNotifying()) nv::announce(*this, obj->id);
}

void AOmap::changed(OObject* obj, bool mayStore) {
  if (mayStore) storeObj(obj);
  if (obj->isNotifying()) nv::announce(*this, obj->id);
}

// The order.

void AOmap::link(OObject* obj, OObject* next) {
  ++orderChanges_;
  obj->prev = next->prev;
  obj->next = next;
  next->prev->next = obj;
  next->prev = obj;
}

void AOmap::unlink(OObject* obj) {
  ++orderChanges_;
  obj->prev->next = obj->next;
  obj->next->prev = obj->prev;
  obj->prev = obj->next = nullptr;
}

OObject* AOmap::getNextObj(OObject* obj) { return nullAtEnd((obj ? obj : &head)->next); }

OObject* AOmap::getPrevObj(OObject* obj) { return nullAtEnd((obj ? obj : &head)->prev); }

OObject* AOmap::findPrevStorable(OObject* obj) {
  do obj = (obj ? obj : &head)->prev;
  while (obj != &head && !obj->isStorable());
  return obj;
}

OObject* AOmap::findNextStorable(OObject* obj) {
  do obj = (obj ? obj : &head)->next;
  while (obj != &head && !obj->isStorable());
  return obj;
}

void AOmap::addNextId(message& m, OObject* obj) {
  m.insert(nv::key::nextId, idOrNone((obj ? obj : &head)->next));
}

void AOmap::addNextStorableId(message& m, OObject* obj) {
  m.insert(nv::key::nextId, idOrNone(findNextStorable(obj)));
}

OObject* AOmap::targetOf(std::uint32_t position) {
  if (position == frontId()) return head.next;
  if (position == nv::kNoId) return &head;
  return objects.get(position);
}

OObject* AOmap::targetAgain(std::uint32_t targetId) {
  OObject* const target = targetId == nv::kHeadId ? &head : objects.get(targetId);
  return target == nullptr ? &head : target;
}

/// Moves `obj` before `next` and stores it and whoever names another object now.
void AOmap::relink(OObject* obj, OObject* next) {
  const std::uint32_t formerPrevious = findPrevStorable(obj)->id;
  unlink(obj);
  link(obj, next);
  if (!obj->isStorable()) return;
  storeObj(obj);
  storeObj(findPrevStorable(obj));
  storeAgain(formerPrevious);
}

/// Takes the object out of the map and its record out of the store, without deleting it.
std::unique_ptr<OObject> AOmap::takeOut(OObject* obj, bool wasStored) {
  const std::uint32_t id = obj->id;
  const std::uint32_t previous = wasStored ? findPrevStorable(obj)->id : nv::kNoId;
  std::unique_ptr<OObject> taken = unlist(obj);
  freeId(id);
  dynamicIds.erase(id);
  if (store != nullptr && store->has(id)) store->remove(id);
  if (wasStored) storeAgain(previous);
  return taken;
}

std::unique_ptr<OObject> AOmap::unlist(OObject* obj) {
  std::unique_ptr<OObject> taken{objects.take(obj->id)};
  unlink(obj);
  return taken;
}

// Ids.

std::uint32_t AOmap::allocateId() { return ids.allocate(); }

std::uint32_t AOmap::allocateId(std::uint32_t id) { return ids.allocate(id); }

void AOmap::freeId(std::uint32_t id) { ids.free(id); }

unsigned AOmap::claimId(std::uint32_t& id) {
  if (id == nv::kNoId) {
    id = allocateId();
  } else {
    if (id < ids.min() || id > ids.max()) return nv::err::noSuchObject;
    if (ids.isAllocated(id) || objects.contains(id)) return nv::err::idInUse;
    id = allocateId(id);
  }
  return id == nv::kNoId ? nv::err::idInUse : 0;
}

bool AOmap::isProtected(const message& request, std::uint32_t id) const {
  return !nv::isFromSystem(request) && dynamicIds.contains(id);
}

// What a service may leave as it is.

bool AOmap::mergeOnSet() { return false; }

std::uint32_t AOmap::frontId() { return 0; }
