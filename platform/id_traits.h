/// `IdTraits<T>`: the C++ types through which a field of each type is read and written.
#pragma once

#include "platform/array_view.h"
#include "platform/ids.h"
#include "platform/lists.h"

namespace nv {

template <ArrayId T>
class array_ref;

/// - `type`: what `get` returns, a value of its own.
/// - `set_type`: what `insert` takes; borrowed for the length of the call where it is not a number.
/// - `view_type`: what `view` returns; borrowed until the message changes.
/// - arrays: `elem_set_type`, one element, and `ref_type`, the message and the id.
template <class T>
struct IdTraits;

namespace detail {

template <class Type, class Set, class View>
struct PlainTraits {
  using type = Type;
  using set_type = Set;
  using view_type = View;
};

/// Arrays of elements of fixed size.
template <class T, class Elem>
struct ItemArrayTraits : PlainTraits<std::vector<Elem>, items<Elem>, array_view<Elem>> {
  using elem_set_type = Elem;
  using ref_type = array_ref<T>;
};

/// Arrays of elements that are borrowed as `View` and owned as `Elem`.
template <class T, class Elem, class View>
struct ViewArrayTraits : PlainTraits<std::vector<Elem>, views<View>, array_view<View>> {
  using elem_set_type = View;
  using ref_type = array_ref<T>;
};

}  // namespace detail

template <>
struct IdTraits<bool_id> : detail::PlainTraits<bool, bool, bool> {};
template <>
struct IdTraits<u32_id> : detail::PlainTraits<std::uint32_t, std::uint32_t, std::uint32_t> {};
template <>
struct IdTraits<u64_id> : detail::PlainTraits<std::uint64_t, std::uint64_t, std::uint64_t> {};
template <>
struct IdTraits<addr6_id> : detail::PlainTraits<addr6, const addr6&, addr6> {};
template <>
struct IdTraits<string_id> : detail::PlainTraits<std::string, std::string_view, std::string_view> {
};
template <>
struct IdTraits<message_id> : detail::PlainTraits<flat_message, flat_view, flat_view> {};
template <>
struct IdTraits<raw_id> : detail::PlainTraits<std::vector<unsigned char>, byte_view, byte_view> {};

/// One byte an element; an insert turns every byte that is not 0 into 1.
template <>
struct IdTraits<bool_array_id> : detail::ItemArrayTraits<bool_array_id, unsigned char> {};
template <>
struct IdTraits<u32_array_id> : detail::ItemArrayTraits<u32_array_id, std::uint32_t> {};
template <>
struct IdTraits<u64_array_id> : detail::ItemArrayTraits<u64_array_id, std::uint64_t> {};
template <>
struct IdTraits<addr6_array_id> : detail::ItemArrayTraits<addr6_array_id, addr6> {};
template <>
struct IdTraits<string_array_id>
    : detail::ViewArrayTraits<string_array_id, std::string, std::string_view> {};
template <>
struct IdTraits<message_array_id>
    : detail::ViewArrayTraits<message_array_id, flat_message, flat_view> {};
template <>
struct IdTraits<raw_array_id>
    : detail::ViewArrayTraits<raw_array_id, std::vector<unsigned char>, byte_view> {};

}  // namespace nv
