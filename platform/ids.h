/// Names of fields: fourteen typed-id classes, and the UId that carries type and id in one number.
///
/// A UId is a type tag (bits 31 to 27) and a field id (bits 23 to 0); bits 26 to 24 are not read
/// and written as 0. The top bit tells arrays. Seven base types exist; a tag above them names no
/// type.
#pragma once

#include <concepts>
#include <cstdint>
#include <string_view>

namespace nv {

inline constexpr std::uint32_t kTypeMask = 0xf8000000;
inline constexpr std::uint32_t kIdMask = 0x00ffffff;

/// The field of type `Tag` with a 24-bit id. Higher bits of what it is built from are dropped.
template <std::uint32_t Tag>
class typed_id {
 public:
  static constexpr std::uint32_t tag = Tag;

  constexpr explicit typed_id(std::uint32_t id) : id_(id & kIdMask) {}

  constexpr std::uint32_t id() const { return id_; }
  constexpr std::uint32_t uid() const { return Tag | id_; }

  friend constexpr bool operator==(typed_id, typed_id) = default;

 private:
  std::uint32_t id_;
};

using bool_id = typed_id<0x00000000>;
using u32_id = typed_id<0x08000000>;
using u64_id = typed_id<0x10000000>;
using addr6_id = typed_id<0x18000000>;
using string_id = typed_id<0x20000000>;
using message_id = typed_id<0x28000000>;
using raw_id = typed_id<0x30000000>;
using bool_array_id = typed_id<0x80000000>;
using u32_array_id = typed_id<0x88000000>;
using u64_array_id = typed_id<0x90000000>;
using addr6_array_id = typed_id<0x98000000>;
using string_array_id = typed_id<0xa0000000>;
using message_array_id = typed_id<0xa8000000>;
using raw_array_id = typed_id<0xb0000000>;

/// Whether the tag of `uid` is one of the fourteen.
constexpr bool isKnownType(std::uint32_t uid) { return ((uid >> 27) & 0xf) <= 6; }

/// One of the fourteen typed-id classes.
template <class T>
concept TypedId = std::same_as<T, typed_id<T::tag>> && isKnownType(T::tag) &&
                  (T::tag & ~kTypeMask) == 0;

/// A typed id that names an array.
template <class T>
concept ArrayId = TypedId<T> && T::tag >= 0x80000000;

/// Calls `f` with the typed id that `uid` names: `withId(uid, [&](auto id) { ... })`.
/// Returns false, without a call, when its tag names no type.
template <class F>
bool withId(std::uint32_t uid, F&& f) {
  switch (uid & kTypeMask) {
    case bool_id::tag: return f(bool_id(uid)), true;
    case u32_id::tag: return f(u32_id(uid)), true;
    case u64_id::tag: return f(u64_id(uid)), true;
    case addr6_id::tag: return f(addr6_id(uid)), true;
    case string_id::tag: return f(string_id(uid)), true;
    case message_id::tag: return f(message_id(uid)), true;
    case raw_id::tag: return f(raw_id(uid)), true;
    case bool_array_id::tag: return f(bool_array_id(uid)), true;
    case u32_array_id::tag: return f(u32_array_id(uid)), true;
    case u64_array_id::tag: return f(u64_array_id(uid)), true;
    case addr6_array_id::tag: return f(addr6_array_id(uid)), true;
    case string_array_id::tag: return f(string_array_id(uid)), true;
    case message_array_id::tag: return f(message_array_id(uid)), true;
    case raw_array_id::tag: return f(raw_array_id(uid)), true;
    default: return false;
  }
}

/// The suffix that stands for the type of `uid` in texts ("_u", "_sa"); empty when it names none.
constexpr std::string_view typeSuffix(std::uint32_t uid) {
  constexpr std::string_view plain[] = {"_b", "_u", "_q", "_a", "_s", "_m", "_r"};
  constexpr std::string_view array[] = {"_ba", "_ua", "_qa", "_aa", "_sa", "_ma", "_ra"};
  if (!isKnownType(uid)) return {};
  const auto base = (uid >> 27) & 0xf;
  return (uid & 0x80000000) != 0 ? array[base] : plain[base];
}

}  // namespace nv
