/// How a map claims the ids of its elements. `Map` is an AMap or an AOmap.
#pragma once

#include <cstdint>

#include "platform/errors.h"
#include "platform/keys.h"

namespace nv {

/// Claims the id that a request wants, or a free one for kNoId. Returns the error that keeps the
/// new element from it, 0 for none; then `id` is the element's.
template <class Map>
unsigned claimId(Map& map, std::uint32_t& id) {
  if (id == kNoId) {
    id = map.allocateId();
  } else {
    if (id < map.ids.min() || id > map.ids.max()) return err::noSuchObject;
    if (map.ids.isAllocated(id) || map.objects.contains(id)) return err::idInUse;
    id = map.allocateId(id);
  }
  return id == kNoId ? err::idInUse : 0;
}

/// Claims the id that the service gave to `obj`, or gives it a free one. False: none is free.
template <class Map, class Obj>
bool claimOwnId(Map& map, Obj& obj) {
  if (obj.id == kNoId)
    obj.id = map.allocateId();
  else
    map.allocateId(obj.id);
  return obj.id != kNoId;
}

}  // namespace nv
