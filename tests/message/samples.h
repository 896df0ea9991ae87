/// One field of each of the fourteen types, and messages that hold, list or lack it.
#pragma once

#include <array>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/keys.h"
#include "platform/message.h"

namespace nv::test {

/// What a message holds of the field. `b` differs from `a` where a careless comparison would not
/// look: beyond the lower half, the common length, the joined bytes.
enum class held { nothing, zero, a, b };

/// An entry of a removal list: the UId as it is given to the call, the same field under other bits
/// 26 to 24, the same id with another tag, an unrelated field.
enum class listed { own, otherBits, otherTag, unrelated };
using listings = std::vector<listed>;

class sample {
 public:
  template <TypedId T>
  sample(T id, const typename IdTraits<T>::type& a, const typename IdTraits<T>::type& b)
      : uid_(id.uid()), values_{field(id, {}), field(id, a), field(id, b)} {}

  unsigned uid() const { return uid_; }

  /// A message with the field, two others beside it, and a removal list where `list` is not empty.
  /// The field is named `uid` in the list.
  message make(held value, const listings& list = {}) const { return make(value, list, uid_); }
  message make(held value, const listings& list, unsigned uid) const {
    message m{{bool_id(1), true}, {raw_array_id(1), {}}};
    if (value != held::nothing) m.merge(values_.at(static_cast<std::size_t>(value) - 1));
    for (const listed entry : list) m.append(key::removals, named(entry, uid));
    return m;
  }

  static unsigned named(listed entry, unsigned uid) {
    switch (entry) {
      case listed::own: return uid;
      case listed::otherBits: return uid ^ 0x01000000;
      case listed::otherTag: return uid ^ 0x80000000;
      default: return 0x08000001;
    }
  }

 private:
  template <TypedId T>
  static message field(T id, const typename IdTraits<T>::type& value) {
    message m;
    m.insert(id, value);
    return m;
  }

  unsigned uid_;
  std::array<message, 3> values_;
};

inline addr6 address(unsigned char last) {
  addr6 made;
  made.bytes[15] = last;
  return made;
}

/// The nested messages list their own field as removed, which nobody may read.
inline flat_message nested(unsigned n) {
  return message{{u32_id(0x5a), n}, {key::removals, {0x2800005a, 0x0800005a}}}.flat();
}

inline const std::vector<sample>& samples() {
  constexpr std::uint64_t high = std::uint64_t{1} << 32;
  using bytes = std::vector<unsigned char>;
  static const std::vector<sample> all{
      {bool_id(0x5a), true, false},
      {u32_id(0x5a), 1, 0x01000001},
      {u64_id(0x5a), 1, 1 + high},
      {addr6_id(0x5a), address(1), address(2)},
      {string_id(0x5a), "ab", std::string("ab\0", 3)},
      {message_id(0x5a), nested(1), nested(2)},
      {raw_id(0x5a), bytes{1, 2}, bytes{1, 2, 0}},
      {bool_array_id(0x5a), bytes{1, 0}, bytes{1, 0, 0}},
      {u32_array_id(0x5a), {1, 2}, {2, 1}},
      {u64_array_id(0x5a), {1, 2}, {1, 2 + high}},
      {addr6_array_id(0x5a), {address(1), address(2)}, {address(2), address(1)}},
      {string_array_id(0x5a), {"ab", "c"}, {"a", "bc"}},
      {message_array_id(0x5a), {nested(1), nested(2)}, {nested(2), nested(1)}},
      {raw_array_id(0x5a), {bytes{1, 2}, bytes{}}, {bytes{1}, bytes{2}}},
  };
  return all;
}

/// A message that holds a field of every type under the id of the samples.
inline message everyType(held value) {
  message all;
  for (const sample& s : samples()) all.merge(s.make(value));
  return all;
}

inline std::string text(const message& m) {
  std::ostringstream os;
  m.dump2(os, "", 0);
  return os.str();
}

}  // namespace nv::test
