/// Random values, fields and messages of all fourteen types, from a seed that a failing test
/// prints.
#pragma once

#include <random>

#include "platform/message.h"

namespace nv::testkit {

/// The same fields, read and inserted one by one through their types.
inline message copiedByType(const message& m) {
  message copy;
  for (const field f : m) {
    withId(f.uid(), [&](auto id) { copy.insert(id, m.get(id)); });
  }
  return copy;
}

class random_source {
 public:
  explicit random_source(unsigned seed) : engine_(seed) {}

  /// A number below `limit`.
  unsigned below(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }
  bool oneIn(unsigned n) { return below(n) == 0; }

  /// A UId of a known type, with one of `ids` small ids: few, so that fields meet again.
  std::uint32_t uid(unsigned ids) {
    const std::uint32_t base = below(7) << 27;
    return base | (oneIn(2) ? 0x80000000 : 0) | (1 + below(ids));
  }

  template <TypedId T>
  typename IdTraits<T>::type value() {
    typename IdTraits<T>::type made{};
    fill(made);
    if constexpr (T::tag == bool_array_id::tag) {
      for (auto& flag : made) flag &= 1;
    }
    return made;
  }

  message someMessage(unsigned fields, unsigned ids) {
    message m;
    for (unsigned k = 0; k < fields; ++k) {
      withId(uid(ids), [&](auto id) { m.insert(id, value<decltype(id)>()); });
    }
    return m;
  }

 private:
  void fill(bool& flag) { flag = oneIn(2); }
  void fill(unsigned char& byte) { byte = static_cast<unsigned char>(below(256)); }
  void fill(std::uint32_t& n) { n = oneIn(2) ? below(4) : static_cast<std::uint32_t>(engine_()); }
  void fill(std::uint64_t& n) { n = oneIn(2) ? below(4) : engine_(); }
  void fill(addr6& address) { address.bytes[below(16)] = 1; }
  void fill(std::string& text) {
    text.resize(below(9));
    for (char& c : text) c = static_cast<char>(below(256));
  }
  void fill(flat_message& flat) {
    if (oneIn(2)) flat = message{{u32_id(below(3)), below(3)}, {string_id(1), "nested"}}.flat();
  }
  template <class E>
  void fill(std::vector<E>& list) {
    list.resize(oneIn(8) ? 40 : below(5));
    for (E& element : list) fill(element);
  }

  std::mt19937_64 engine_;
};

}  // namespace nv::testkit
