/// What must be true of a container at any time, whatever happened to it: empty, or the fault.
#pragma once

#include <string>

#include "containers/aholder.h"
#include "containers/amap.h"
#include "containers/omap.h"

namespace test {
inline std::string fault(std::uint32_t id, const char* what) {
  return "object " + std::to_string(id) + ": " + what;
}

/// Every object stands under its own id, every id that is given out belongs to an object, dynamic
/// marks belong to objects, and writes are put off only when there is a store and they are not made
/// at once.
template <class Map>
std::string verifyIds(const Map& map) {
  std::uint64_t inRangeCount = 0;
  for (const auto& [id, obj] : map.objects) {
    if (obj == nullptr || obj->id != id || id == nv::kNoId) return fault(id, "is not its object's");
    if (id < map.ids.min() || id > map.ids.max()) continue;
    ++inRangeCount;
    if (!map.ids.isAllocated(id)) return fault(id, "its id is free");
  }
  if (map.ids.used() != inRangeCount) return "an id without an object is given out";
  for (const std::uint32_t id : map.dynamicIds)
    if (!map.objects.contains(id)) return fault(id, "dynamic and not there");
  for (const std::uint32_t id : map.pending) {
    // An ordered map that finds no object leaves the head to be written by the first flush.
    const bool mayWait = id == nv::kHeadId || !map.autoStore;
    if (map.store == nullptr || !mayWait) return fault(id, "pending though nobody put it off");
  }
  return {};
}

inline std::string verify(const AMap& map) { return verifyIds(map); }

/// Every object is linked once, in both directions.
inline std::string verify(const AOmap& map) {
  if (map.restoring) return "restoring for ever";
  std::size_t linked = 0;
  for (const OObject* obj = &map.head; obj->next != &map.head; obj = obj->next) {
    if (obj->next == nullptr) return fault(obj->id, "stands before nothing");
    if (obj->next->prev != obj) return fault(obj->id, "is not who stands before its next");
    if (map.objects.get(obj->next->id) != obj->next) return fault(obj->next->id, "linked alone");
    if (++linked > map.objects.size()) return "leads back";
  }
  if (map.head.prev->next != &map.head) return fault(map.head.prev->id, "last, and is not");
  return linked == map.objects.size() ? verifyIds(map) : "an object is not linked";
}

/// A write is put off only when there is a store and it is not made at once.
inline std::string verify(const AHolder& holder) {
  const bool mayWait = holder.store != nullptr && !holder.autoStore;
  return holder.dirty && !mayWait ? "a write is put off that nobody put off" : "";
}

}  // namespace test
