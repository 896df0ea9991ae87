/// One field of a message, seen from outside: which it is, and its value as bytes.
#pragma once

#include <new>

#include "platform/id_traits.h"

namespace nv {

namespace flat {
class writer;
}

/// A field where it stands; valid until its message changes. Only messages make fields, so the
/// bytes of one always are a value of its type, in the one form that such a value has.
class field {
 public:
  std::uint32_t uid() const { return uid_; }
  std::uint32_t id() const { return uid_ & kIdMask; }

  /// The value: numbers little-endian (4 bytes for bool and u32, 8 for u64), arrays as `array_view`
  /// says.
  byte_view bytes() const { return bytes_; }

  /// The value as `T` reads it; `T` must be the class of this field's type.
  template <TypedId T>
  typename IdTraits<T>::view_type as() const {
    return read<T>(bytes_);
  }

  /// Same field with an equal value.
  friend bool operator==(const field& a, const field& b) {
    if (a.uid_ != b.uid_ || a.bytes_.size() != b.bytes_.size()) return false;
    if (a.bytes_.size() == 4) return load32(a.bytes_.data()) == load32(b.bytes_.data());
    return std::memcmp(a.bytes_.data(), b.bytes_.data(), a.bytes_.size()) == 0;
  }

 private:
  friend class message;

  field(std::uint32_t uid, byte_view bytes) : uid_(uid), bytes_(bytes) {}

  /// A value from its bytes; no bytes read as the zero value.
  template <TypedId T>
  static typename IdTraits<T>::view_type read(byte_view bytes) {
    using View = typename IdTraits<T>::view_type;
    if constexpr (std::is_same_v<View, bool>) {
      return !bytes.empty() && load32(bytes.data()) != 0;
    } else if constexpr (std::is_integral_v<View>) {
      return bytes.empty() ? 0 : load<View>(bytes.data());
    } else if constexpr (std::is_same_v<View, addr6>) {
      addr6 address;
      if (!bytes.empty()) std::memcpy(&address, bytes.data(), sizeof address);
      return address;
    } else if constexpr (isView<View>) {
      return viewOf<View>(bytes);
    } else {
      return View(bytes);
    }
  }

  std::uint32_t uid_;
  byte_view bytes_;
};

/// A field and a value to give it, borrowed: one entry of the list that a message is built from.
class field_value {
 public:
  template <TypedId T>
  field_value(T id, typename IdTraits<T>::set_type value) : uid_(id.uid()) {
    using Set = typename IdTraits<T>::set_type;
    if constexpr (std::is_integral_v<Set>) {
      number_ = value;
    } else if constexpr (std::is_base_of_v<byte_list, Set>) {
      new (&list_) byte_list(value);
    } else {
      new (&bytes_) byte_view(rawBytes(value));
    }
  }

  /// What is copied into the message as it stands (numbers in the machine's order).
  static byte_view rawBytes(const addr6& address) { return address.bytes; }
  static byte_view rawBytes(std::string_view text) { return bytesOf(text); }
  static byte_view rawBytes(flat_view flat) { return flat.bytes(); }
  static byte_view rawBytes(byte_view bytes) { return bytes; }
  template <class E>
  static byte_view rawBytes(const items<E>& list) {
    return list.bytes();
  }

 private:
  friend class message;

  std::uint64_t size() const;
  std::uint64_t room() const;
  void write(flat::writer& writer) const;

  std::uint32_t uid_;
  // By the type of `uid_`: bool, u32 and u64; lists of strings, messages and byte sequences;
  // others.
  union {
    std::uint64_t number_;
    byte_list list_;
    byte_view bytes_;
  };
};

}  // namespace nv
