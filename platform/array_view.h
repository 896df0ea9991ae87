/// An array field, read where it stands.
#pragma once

#include <cstddef>
#include <iterator>

#include "platform/addr6.h"
#include "platform/element.h"

namespace nv {

/// Elements of type `E` in the bytes of a message; valid until the message changes.
///
/// Elements of fixed size stand one after the other. Others are `u32 count | count u32 ends |
/// bytes`, so that each is reached directly. The bytes must be those of such an array, as a
/// message's always are.
template <class E>
class array_view {
 public:
  class iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = E;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = E;

    iterator(byte_view bytes, std::size_t k) : bytes_(bytes), k_(k) {}
    E operator*() const { return array_view(bytes_)[k_]; }
    iterator& operator++() { return ++k_, *this; }
    iterator operator++(int) { return iterator(bytes_, k_++); }
    bool operator==(const iterator& other) const { return k_ == other.k_; }

   private:
    byte_view bytes_;
    std::size_t k_;
  };

  array_view() = default;
  explicit array_view(byte_view bytes) : bytes_(bytes) {}

  std::size_t size() const {
    if constexpr (!isView<E>) return bytes_.size() / sizeof(E);
    return bytes_.empty() ? 0 : load32(bytes_.data());
  }
  bool empty() const { return size() == 0; }

  /// Requires: `k` below `size()`.
  E operator[](std::size_t k) const {
    if constexpr (isView<E>) {
      const unsigned char* ends = bytes_.data() + 4;
      const std::size_t begin = k == 0 ? 0 : load32(ends + 4 * (k - 1));
      const std::size_t end = load32(ends + 4 * k);
      return viewOf<E>(bytes_.subspan(4 + 4 * size() + begin, end - begin));
    } else if constexpr (std::is_integral_v<E>) {
      return load<E>(bytes_.data() + k * sizeof(E));
    } else {
      E element;
      std::memcpy(&element, bytes_.data() + k * sizeof(E), sizeof(E));
      return element;
    }
  }

  iterator begin() const { return iterator(bytes_, 0); }
  iterator end() const { return iterator(bytes_, size()); }

 private:
  byte_view bytes_;
};

}  // namespace nv
