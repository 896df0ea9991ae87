/// The numbers of the flat form, each written once. See `nv::message` for the layout.
#pragma once

#include "platform/bytes.h"
#include "platform/ids.h"

namespace nv::flat {

inline constexpr std::uint32_t kHeader = 12;
inline constexpr std::uint32_t kEntry = 8;
inline constexpr std::uint32_t kPadMask = 3;
/// UIds below this one are words: their value stands in the entry.
inline constexpr std::uint32_t kFirstValue = u64_id::tag;

inline unsigned char* entry(unsigned char* data, std::size_t k) {
  return data + kHeader + kEntry * k;
}
inline const unsigned char* entry(const unsigned char* data, std::size_t k) {
  return data + kHeader + kEntry * k;
}
// The header.
inline std::uint32_t length(const unsigned char* data) { return load32(data); }
inline std::uint32_t fields(const unsigned char* data) { return load32(data + 4); }
inline std::uint32_t words(const unsigned char* data) { return load32(data + 8); }
inline void setHeader(unsigned char* data, std::size_t length, std::size_t fields,
                      std::size_t words) {
  store32(data, static_cast<std::uint32_t>(length));
  store32(data + 4, static_cast<std::uint32_t>(fields));
  store32(data + 8, static_cast<std::uint32_t>(words));
}

// An entry.
inline std::uint32_t uid(const unsigned char* entry) { return load32(entry); }
inline std::uint32_t val(const unsigned char* entry) { return load32(entry + 4); }
inline void setVal(unsigned char* entry, std::uint32_t val) { store32(entry + 4, val); }

/// Zero bytes that follow a value of `size` bytes.
constexpr std::uint32_t padding(std::uint64_t size) {
  return static_cast<std::uint32_t>(-size & kPadMask);
}

}  // namespace nv::flat
