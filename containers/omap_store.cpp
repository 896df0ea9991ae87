// AOmap and its store: life, records, writing at once or put off, and the way back after a restart.
#include <algorithm>
#include <iostream>
#include <memory>
#include <unordered_set>
#include <utility>
#include <vector>

#include "containers/apply.h"
#include "containers/omap.h"
#include "containers/record.h"
#include "platform/keys.h"

using nv::message;

namespace {

/// In a head record of the older layout: the ids of all objects in their order.
constexpr nv::u32_array_id kOlderOrder{1};

}  // namespace

AOmap::AOmap(const std::string& storeName, std::uint32_t minId, std::uint32_t maxId)
    : ids(minId, std::min(maxId, nv::kHeadId - 1)), store(nv::openStore(storeName)) {
  head.id = nv::kHeadId;
  head.prev = head.next = &head;
}

AOmap::~AOmap() {
  bool isCut = false;
  for (OObject* behind = &head; behind->prev != &head;) {
    OObject* const obj = behind->prev;
    if (obj->isStorable()) {
      if (isCut) storeObj(obj);
      behind = obj;
    } else {
      unlink(obj);
      isCut = true;
    }
  }
  delete std::exchange(store, nullptr);
  dynamicIds.clear();
  pending.clear();
  // A destructor of an element must not find the half of its map that is left.
  head.prev = head.next = &head;
  for (const auto& [id, obj] : std::exchange(objects, {})) delete obj;
}

// Writing.

void AOmap::saveObj(OObject* obj) { saveWithNext(obj, idOrNone(findNextStorable(obj))); }

void AOmap::saveWithNext(OObject* obj, std::uint32_t next) {
  message record{{nv::key::objectId, obj->id}, {nv::key::nextId, next}};
  const auto seen = orderChanges_;
  obj->getConfig(record, nv::kRecordFlags);
  // An element that changes the order while it is written must not have the former one stored.
  if (orderChanges_ != seen && record.get(nv::key::nextId) == next) addNextStorableId(record, obj);
  store->set(obj->id, record);
}

void AOmap::storeObj(OObject* obj) {
  if (store == nullptr) return;
  if (obj != &head && !obj->isStorable()) return;
  if (autoStore && !restoring) {
    saveObj(obj);
  } else {
    pending.insert(obj->id);
  }
  closeGap(obj->id);
}

void AOmap::storeAgain(std::uint32_t id) {
  OObject* const obj = id == nv::kHeadId ? &head : objects.get(id);
  if (obj != nullptr) storeObj(obj);
}

void AOmap::removeRecord(std::uint32_t id) {
  store->remove(id);
  closeGap(id);
}

/// The record `id` is no longer the one that was passed over: who led to it leads to an object now.
void AOmap::closeGap(std::uint32_t id) {
  const auto gap = passedOver_.find(id);
  if (gap == passedOver_.end()) return;
  const std::uint32_t before = gap->second;
  passedOver_.erase(gap);
  storeAgain(before);
}

void AOmap::storeAdded(OObject* obj) {
  if (!isStored(*obj)) return;
  storeObj(obj);
  storeObj(findPrevStorable(obj));
}

void AOmap::storeChange(OObject& old, OObject& obj) {
  const bool isStorable = obj.isStorable();
  const bool wasStorable = old.isStorable();
  if (isStorable) {
    storeObj(&obj);
  } else if (wasStorable && store != nullptr) {
    removeRecord(old.id);
  }
  // The chain gains or loses a link here.
  if (isStorable != wasStorable) storeObj(findPrevStorable(&obj));
}

void AOmap::flushConfig() {
  // A chain that is half restored would be cut where it ends now.
  if (store == nullptr || restoring) return;
  NextIds known;
  auto seen = orderChanges_;
  // What the elements put off while they are written waits for the next flush.
  for (const std::uint32_t id : std::exchange(pending, {})) {
    if (std::exchange(seen, orderChanges_) != orderChanges_) known.clear();
    flushOne(id, known);
  }
}

void AOmap::flushOne(std::uint32_t id, NextIds& known) {
  OObject* obj = objects.get(id);
  if (obj == nullptr || !obj->isStorable()) obj = id == nv::kHeadId ? &head : nullptr;
  if (obj != nullptr) {
    saveWithNext(obj, nextStorableId(obj, known));
  } else {
    store->remove(id);
  }
}

/// The walk stops where an earlier one came along, so that a flush is linear however many objects
/// in a row are not storable.
std::uint32_t AOmap::nextStorableId(OObject* obj, NextIds& known) {
  const auto isNamed = [&](OObject* at) { return at == &head || at->isStorable(); };
  OObject* at = obj->next;
  while (!known.contains(at) && !isNamed(at)) at = at->next;
  const auto noted = known.find(at);
  const std::uint32_t next = noted == known.end() ? idOrNone(at) : noted->second;
  for (const OObject* passed = obj->next; passed != at; passed = passed->next) known[passed] = next;
  return next;
}

void AOmap::setAutoStore(bool on) {
  autoStore = on;
  if (on) flushConfig();
}

// Restoring.

void AOmap::init() {
  if (store == nullptr) return;
  restoring = true;
  const message headRecord = store->get(nv::kHeadId);
  if (headRecord.has(nv::key::nextId))
    restoreChain(headRecord.get(nv::key::nextId));
  else
    restoreOlder(headRecord);
  restoring = false;
  if (objects.empty()) return;
  flushConfig();
  reportUnused();
}

void AOmap::restoreChain(std::uint32_t first) {
  std::unordered_set<std::uint32_t> visited{nv::kNoId, nv::kHeadId};
  std::uint32_t last = nv::kHeadId;
  for (std::uint32_t id = first; visited.insert(id).second;) {
    const bool isHeld = objects.contains(id);
    const auto next = isHeld ? store->get(id).get(nv::key::nextId, nv::kNoId) : restoreObj(id);
    OObject* const obj = objects.get(id);
    if (obj != nullptr && !isHeld) {
      last = id;
    } else {
      passedOver_[id] = last;
      if (obj != nullptr) storeObj(obj);
    }
    id = next;
  }
}

void AOmap::restoreOlder(const message& headRecord) {
  std::vector<std::uint32_t> order;
  if (headRecord.has(kOlderOrder))
    order = headRecord.get(kOlderOrder);
  else
    order.assign(store->ids().begin(), store->ids().end());
  std::unordered_set<std::uint32_t> visited{nv::kNoId, nv::kHeadId};
  for (const std::uint32_t id : order)
    if (!objects.contains(id) && visited.insert(id).second) restoreObj(id);

  for (const auto& [id, obj] : objects) storeObj(obj);
  storeObj(&head);
}

std::uint32_t AOmap::restoreObj(std::uint32_t id) {
  const message rec = store->get(id);
  std::unique_ptr<OObject> restored{newObject()};
  OObject* const obj = restored.get();
  obj->id = id;
  nv::apply(*obj, rec, nv::kRecordFlags, nv::applyMode(mergeOnSet()));
  allocateId(id);

  const message verdict = checkRestore(obj);
  if (nv::isError(verdict)) {
    std::cout << "AOmap::init error:" + nv::getError(verdict) + "\n" << std::flush;
    freeId(id);
  } else if (objects.emplace(id, obj).second) {
    restored.release();
    link(obj, &head);
    objAdded(obj);
  }
  return rec.get(nv::key::nextId, nv::kNoId);
}

void AOmap::reportUnused() {
  const auto unused =
      static_cast<std::int64_t>(store->count()) - static_cast<std::int64_t>(objects.size()) - 1;
  if (unused == 0) return;
  std::cout << "AOmap::init warning: store has " + std::to_string(unused) + " unused objects\n"
            << std::flush;
}
