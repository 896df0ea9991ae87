/// Fixed-width numbers in byte buffers: little-endian whatever the machine, at any address.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace nv {

/// Bytes that somebody else owns.
using byte_view = std::span<const unsigned char>;

/// `value` with its bytes in the other order.
template <std::unsigned_integral T>
constexpr T swapBytes(T value) {
  T swapped = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    swapped = static_cast<T>((swapped << 8) | (value & 0xff));
    value = static_cast<T>(value >> 8);
  }
  return swapped;
}

/// Reads a number from `sizeof(T)` bytes at `from`, which need not be aligned.
template <std::unsigned_integral T>
inline T load(const unsigned char* from) {
  T value;
  std::memcpy(&value, from, sizeof value);
  if constexpr (std::endian::native == std::endian::big) value = swapBytes(value);
  return value;
}

/// Writes `value` into `sizeof(T)` bytes at `to`, which need not be aligned.
template <std::unsigned_integral T>
inline void store(unsigned char* to, T value) {
  if constexpr (std::endian::native == std::endian::big) value = swapBytes(value);
  std::memcpy(to, &value, sizeof value);
}

inline std::uint32_t load32(const unsigned char* from) { return load<std::uint32_t>(from); }
inline std::uint64_t load64(const unsigned char* from) { return load<std::uint64_t>(from); }
inline void store32(unsigned char* to, std::uint32_t value) { store(to, value); }
inline void store64(unsigned char* to, std::uint64_t value) { store(to, value); }

}  // namespace nv
