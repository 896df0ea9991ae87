/// What an insert of an array takes: a borrowed list, of whatever container holds the elements.
#pragma once

#include <concepts>
#include <initializer_list>
#include <ranges>

#include "platform/element.h"

namespace nv {

template <class E>
class items;
class byte_list;

namespace detail {

template <class R, class E>
concept RangeOf =
    std::ranges::contiguous_range<R> && std::same_as<std::ranges::range_value_t<R>, E> &&
    !std::same_as<std::remove_cvref_t<R>, items<E>>;

template <class R>
using ElementOf = const std::ranges::range_value_t<R>&;

template <class R, class V>
concept RangeSeenAs = std::ranges::contiguous_range<R> && std::convertible_to<ElementOf<R>, V> &&
    !std::derived_from<std::remove_cvref_t<R>, byte_list>;

}  // namespace detail

/// Elements of fixed size that stand one after the other: a vector, an array, a span, or braces.
template <class E>
class items {
 public:
  items() = default;
  items(std::initializer_list<E> list) : items_(list.begin(), list.size()) {}

  template <detail::RangeOf<E> R>
  items(R&& range) : items_(std::ranges::data(range), std::ranges::size(range)) {}

  std::size_t size() const { return items_.size(); }
  const E& operator[](std::size_t k) const { return items_[k]; }
  byte_view bytes() const {
    return {reinterpret_cast<const unsigned char*>(items_.data()), items_.size_bytes()};
  }

 private:
  std::span<const E> items_;
};

/// Byte sequences reached by number, whatever their type and container.
class byte_list {
 public:
  byte_list() = default;

  std::size_t size() const { return count_; }
  byte_view operator[](std::size_t k) const {
    byte_view element;
    read_(first_, k, {&element, 1});
    return element;
  }

  /// Calls `take` with each element in turn. Fetches many at a time, since each fetch is a call
  /// through a pointer.
  template <class Take>
  void forEach(Take take) const {
    byte_view chunk[16];
    for (std::size_t k = 0; k < count_; k += std::size(chunk)) {
      const std::size_t length = count_ - k < std::size(chunk) ? count_ - k : std::size(chunk);
      read_(first_, k, {chunk, length});
      for (std::size_t i = 0; i < length; ++i) take(chunk[i]);
    }
  }

 protected:
  using Reader = void (*)(const void* first, std::size_t k, std::span<byte_view> out);
  byte_list(const void* first, std::size_t count, Reader read)
      : first_(first), count_(count), read_(read) {}

 private:
  const void* first_ = nullptr;
  std::size_t count_ = 0;
  Reader read_ = nullptr;
};

/// Anything that reads as views of type `V` and stands one after the other: a vector of strings, of
/// string views, of flat messages or of messages, or braces.
template <class V>
class views : public byte_list {
 public:
  views() = default;
  views(std::initializer_list<V> list) : byte_list(list.begin(), list.size(), read<V>) {}

  template <detail::RangeSeenAs<V> R>
  views(R&& range)
      : byte_list(std::ranges::data(range), std::ranges::size(range),
                  read<std::ranges::range_value_t<R>>) {}

  V operator[](std::size_t k) const { return viewOf<V>(byte_list::operator[](k)); }

 private:
  template <class E>
  static void read(const void* first, std::size_t k, std::span<byte_view> out) {
    const E* element = static_cast<const E*>(first) + k;
    for (byte_view& bytes : out) {
      const V view = *element++;
      bytes = bytesOf(view);
    }
  }
};

}  // namespace nv
