// The order of an AOmap, and what the service itself changes in it.
#include <cassert>
#include <memory>
#include <utility>

#include "containers/apply.h"
#include "containers/ids.h"
#include "containers/omap.h"
#include "platform/keys.h"

using nv::message;

// Changing by the service.

AOmapIterator AOmap::add(OObject* obj, OObject* next) {
  if (!nv::claimOwnId(*this, *obj)) {
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
  if (store != nullptr && store->has(id)) removeRecord(id);
  OObject* const previous = isStored(*obj) ? findPrevStorable(obj) : nullptr;
  const std::unique_ptr<OObject> removed = unlist(obj);
  if (previous != nullptr) storeObj(previous);
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
  const bool stored = isStored(*obj);
  const std::uint32_t formerPrevious = stored ? findPrevStorable(obj)->id : nv::kNoId;
  unlink(obj);
  link(obj, next);
  if (!stored) return;
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
  if (store != nullptr && store->has(id)) removeRecord(id);
  if (wasStored) storeAgain(previous);
  return taken;
}

std::unique_ptr<OObject> AOmap::unlist(OObject* obj) {
  std::unique_ptr<OObject> taken{objects.take(obj->id)};
  unlink(obj);
  return taken;
}
