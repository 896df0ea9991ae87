/// The bytes that a fuzz target is fed, as numbers and texts.
#pragma once

#include <cstddef>
#include <string>

#include "platform/message.h"

namespace fuzz {

/// Takes numbers from the input; zero when it is used up.
class Input {
 public:
  Input(const unsigned char* data, std::size_t size) : bytes_(data, size) {}

  bool empty() const { return bytes_.empty(); }
  unsigned byte() {
    if (bytes_.empty()) return 0;
    const unsigned value = bytes_[0];
    bytes_ = bytes_.subspan(1);
    return value;
  }
  /// Small, or close to the largest, or anything.
  unsigned number() {
    const unsigned first = byte();
    if (first < 0xe0) return first;
    if (first < 0xf0) return 0xffffffef + (first & 0xf) + 1;
    unsigned any = 0;
    for (unsigned k = 0; k < 4; ++k) any |= byte() << (8 * k);
    return any;
  }
  std::string text() {
    const unsigned length = byte();
    return std::string(length, static_cast<char>(byte()));
  }

 private:
  nv::byte_view bytes_;
};

}  // namespace fuzz
