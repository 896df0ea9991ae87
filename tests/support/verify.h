/// What must be true of a container at any time, whatever happened to it.
#pragma once

#include <gtest/gtest.h>

#include "containers/aholder.h"
#include "containers/amap.h"
#include "containers/omap.h"

namespace test {
inline testing::AssertionResult fault(std::uint32_t id, const char* what) {
  return testing::AssertionFailure() << "object " << id << ": " << what;
}

/// Every object stands under its own id, every id that is given out belongs to an object, dynamic
/// marks belong to objects, and writes are put off only when there is a store and they are not made
/// at once.
template <class Map>
testing::AssertionResult verifyIds(const Map& map) {
  std::uint64_t inRangeCount = 0;
  for (const auto& [id, obj] : map.objects) {
    if (obj == nullptr) return fault(id, "null");
    if (obj->id != id) return fault(id, "stands under another id");
    if (id == nv::kNoId) return fault(id, "has no id");
    if (id < map.ids.min() || id > map.ids.max()) continue;
    ++inRangeCount;
    if (!map.ids.isAllocated(id)) return fault(id, "its id is free");
  }
  if (map.ids.used() != inRangeCount) {
    return testing::AssertionFailure()
           << map.ids.used() << " ids for " << inRangeCount << " objects";
  }
  for (const std::uint32_t id : map.dynamicIds) {
    if (!map.objects.contains(id)) return fault(id, "dynamic and not there");
  }
  for (const std::uint32_t id : map.pending) {
    // An ordered map that finds no object leaves the head to be written by the first flush.
    const bool mayWait = id == nv::kHeadId || !map.autoStore;
    if (map.store == nullptr || !mayWait) return fault(id, "pending though nobody put it off");
  }
  return testing::AssertionSuccess();
}

/// Every object is linked once, in both directions.
inline testing::AssertionResult verifyLinks(const AOmap& map) {
  std::size_t linked = 0;
  for (const OObject* obj = &map.head; obj->next != &map.head; obj = obj->next) {
    if (obj->next == nullptr) return fault(obj->id, "stands before nothing");
    if (obj->next->prev != obj) return fault(obj->id, "is not who stands before its next");
    if (map.objects.get(obj->next->id) != obj->next) return fault(obj->next->id, "linked alone");
    if (++linked > map.objects.size()) return testing::AssertionFailure() << "leads back";
  }
  if (map.head.prev->next != &map.head) return fault(map.head.prev->id, "last, and is not");
  if (linked != map.objects.size()) {
    return testing::AssertionFailure() << linked << " linked of " << map.objects.size();
  }
  return testing::AssertionSuccess();
}

inline testing::AssertionResult verify(const AMap& map) { return verifyIds(map); }

inline testing::AssertionResult verify(const AOmap& map) {
  if (auto ids = verifyIds(map); !ids) return ids;
  if (map.restoring) return testing::AssertionFailure() << "restoring for ever";
  return verifyLinks(map);
}

/// A write is put off only when there is a store and it is not made at once.
inline testing::AssertionResult verify(const AHolder& holder) {
  if (holder.dirty && (holder.store == nullptr || holder.autoStore))
    return testing::AssertionFailure() << "a write is put off that nobody put off";
  return testing::AssertionSuccess();
}

}  // namespace test
