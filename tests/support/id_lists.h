/// Lists of ids in which each comes once.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/keys.h"

namespace test {

using Ids = std::vector<std::uint32_t>;

inline std::size_t indexOf(const Ids& ids, std::uint32_t id) {
  return static_cast<std::size_t>(std::find(ids.begin(), ids.end(), id) - ids.begin());
}
inline bool contains(const Ids& ids, std::uint32_t id) { return indexOf(ids, id) < ids.size(); }
inline std::uint32_t nextIn(const Ids& ids, std::uint32_t id) {
  const auto at = indexOf(ids, id) + 1;
  return at < ids.size() ? ids[at] : nv::kNoId;
}
inline void insertAt(Ids& ids, std::size_t at, std::uint32_t id) {
  ids.insert(ids.begin() + static_cast<std::ptrdiff_t>(at), id);
}

}  // namespace test
