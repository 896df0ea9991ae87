/// How arrays stand in the heap.
#pragma once

#include "platform/lists.h"
#include "platform/src/message/flat_layout.h"

namespace nv::flat {

/// A list of byte sequences is a count and as many ends, then the bytes.
inline constexpr std::uint32_t kListHead = 4;
inline constexpr std::uint32_t kListEnd = 4;

inline void copyBytes(unsigned char* to, byte_view from) {
  if (!from.empty()) std::memcpy(to, from.data(), from.size());
}

/// Gives items that were copied as the machine holds them the form that messages hold: flags 0 or
/// 1, numbers little-endian. Values of other types stay as they are.
void normalise(std::uint32_t uid, unsigned char* items, std::size_t size);

/// The bytes that `writeList` writes.
std::uint64_t listSize(const byte_list& list);

/// Writes `u32 count | count u32 ends | bytes`.
void writeList(unsigned char* to, const byte_list& list);

}  // namespace nv::flat
