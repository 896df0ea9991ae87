// AMap and its store: life, records, writing at once or put off, and the way back after a restart.
#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include "containers/amap.h"
#include "containers/apply.h"
#include "containers/record.h"
#include "containers/request.h"
#include "platform/keys.h"

using nv::message;

namespace {

void reportRefused(unsigned code, const std::string& text) {
  std::cout << "AMap: load from store error: " + text + " (" + std::to_string(code) + ")\n"
            << std::flush;
}

}  // namespace

AMap::AMap(std::string_view storeName, std::uint32_t minId, std::uint32_t maxId)
    : ids(minId, maxId), store(nv::openStore(storeName)) {}

AMap::~AMap() {
  delete std::exchange(store, nullptr);
  dynamicIds.clear();
  pending.clear();
  // A destructor of an element must not find the half of its map that is left.
  for (const auto& [id, obj] : std::exchange(objects, {})) delete obj;
}

// Writing.

void AMap::saveObj(Object* obj) { store->set(obj->id, recordOf(*obj, nv::kRecordFlags)); }

void AMap::storeObj(Object* obj) {
  if (store == nullptr) return;
  if (autoStore) {
    saveObj(obj);
  } else {
    pending.insert(obj->id);
  }
}

void AMap::removeObj(std::uint32_t id) {
  if (store == nullptr) return;
  if (autoStore) {
    store->remove(id);
  } else {
    pending.insert(id);
  }
}

void AMap::storeChange(Object& old, Object& obj) {
  if (obj.isStorable()) {
    storeObj(&obj);
  } else if (old.isStorable()) {
    removeObj(old.id);
  }
}

void AMap::flushConfig() {
  if (store == nullptr) return;
  // What the elements put off while they are written waits for the next flush.
  for (const std::uint32_t id : std::exchange(pending, {})) flushObj(id);
}

void AMap::flushObj(std::uint32_t id) {
  Object* const obj = objects.get(id);
  if (obj != nullptr && obj->isStorable()) {
    saveObj(obj);
  } else {
    store->remove(id);
  }
}

void AMap::setAutoStore(bool on) {
  autoStore = on;
  if (on) flushConfig();
}

// Restoring.

void AMap::init() {
  if (store == nullptr || store->count() == 0) return;
  const nv::Allocator& stored = store->ids();
  // What the service stores meanwhile is no news to it.
  const std::uint32_t last = stored.highest();
  for (auto at = stored.begin(); at != stored.end() && *at <= last;) {
    const std::uint32_t id = *at;
    const bool isLast = id == last || ++at == stored.end();
    const std::uint32_t next = isLast ? id : *at;
    restoreObj(store->get(id), id, nv::kRecordFlags);
    if (isLast) return;
    // The record may be gone now, and the service may have written others.
    at = stored.lowerBound(next);
  }
}

void AMap::restoreObj(const message& rec, std::uint32_t id, std::uint32_t flags) {
  std::unique_ptr<Object> restored{newObject()};
  Object* const obj = restored.get();
  obj->id = claimRestoredId(id);
  if (obj->id == nv::kNoId) return;
  if (acceptsManaged()) obj->setManagedId(nv::managedIdOf(rec));
  nv::apply(*obj, rec, flags, nv::applyMode(mergeOnSet()));

  const message verdict = checkRestore(obj);
  unsigned code = 0;
  std::string text;
  if (nv::isError(verdict, &code, &text)) {
    reportRefused(code, text);
    if (store != nullptr) store->remove(id);
    freeId(obj->id);
    return;
  }
  if (!objects.emplace(obj->id, obj).second) return;
  restored.release();
  objAdded(obj);
}

std::uint32_t AMap::claimRestoredId(std::uint32_t id) {
  const bool isTaken = id == nv::kNoId || isIdAllocated(id) || objects.contains(id);
  if (isTaken) return allocateId();
  allocateId(id);
  return id;
}
