#include "containers/omap.h"

#include <memory>
#include <string>
#include <utility>

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

std::uint32_t positionOf(const message& request) { return request.get(nv::key::nextId, nv::kNoId); }

}  // namespace

// Reading.

message AOmap::cmdGetObj(const message& request, std::uint32_t id) {
  OObject* const obj = objects.get(id);
  if (obj == nullptr) return nv::refusal(nv::err::noSuchObject);
  message reply = nv::configOf(*obj, nv::clientFlags(nv::getFlagsOf(request)));
  addNextId(reply, obj);
  return reply;
}

message AOmap::cmdGetAll(const message& request, std::uint32_t startId, std::uint32_t count) {
  const bool fromFirst = startId == nv::kNoId;
  if (!fromFirst && !objects.contains(startId)) return nv::refusal(nv::err::noSuchObject);

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
  if (target == nullptr) return nv::refusal(nv::err::noSuchPosition);
  const std::uint32_t targetId = target->id;
  std::uint32_t id = request.get(nv::key::objectId, nv::kNoId);
  if (const unsigned error = nv::claimId(*this, id)) return nv::refusal(error);

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
  if (objects.contains(id)) return nv::refusal(nv::err::idInUse);
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
  if (obj == nullptr) return nv::refusal(nv::err::noSuchObject);
  if (nv::isProtected(dynamicIds, request, id)) return nv::refusal(ErrorText::cantEditDynamic);

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
  if (obj == nullptr) return nv::refusal(nv::err::noSuchObject);
  if (nv::isProtected(dynamicIds, request, id)) return nv::refusal(ErrorText::cantRemoveDynamic);

  const bool stored = isStored(*obj);
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
  if (obj == nullptr) return nv::refusal(nv::err::noSuchObject);
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

// Ids.

std::uint32_t AOmap::allocateId() { return ids.allocate(); }

std::uint32_t AOmap::allocateId(std::uint32_t id) { return ids.allocate(id); }

void AOmap::freeId(std::uint32_t id) { ids.free(id); }

// What a service may leave as it is.

bool AOmap::mergeOnSet() { return false; }

std::uint32_t AOmap::frontId() { return 0; }
