/// How one element of a sequence looks: as bytes, as a view, as an owned value.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/flat_message.h"

namespace nv {

/// Elements whose bytes vary in number and are borrowed: strings, flat forms, byte sequences.
template <class V>
inline constexpr bool isView = std::is_same_v<V, std::string_view> ||
                               std::is_same_v<V, flat_view> || std::is_same_v<V, byte_view>;

inline byte_view bytesOf(std::string_view text) {
  return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}
inline byte_view bytesOf(byte_view bytes) { return bytes; }
inline byte_view bytesOf(flat_view flat) { return flat.bytes(); }

/// The view of type `V` on `bytes`.
template <class V>
V viewOf(byte_view bytes) {
  if constexpr (std::is_same_v<V, std::string_view>) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  } else {
    return V(bytes);
  }
}

/// A value that owns what `view` borrows. Plain values are returned as they are.
template <class V>
auto ownedOf(const V& view) {
  if constexpr (std::is_same_v<V, std::string_view>) {
    return std::string(view);
  } else if constexpr (std::is_same_v<V, flat_view>) {
    return flat_message(view);
  } else if constexpr (std::is_same_v<V, byte_view>) {
    return std::vector<unsigned char>(view.begin(), view.end());
  } else {
    return view;
  }
}

}  // namespace nv
