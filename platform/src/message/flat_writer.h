/// Writes a flat form in one go, field after field, ascending by UId.
#pragma once

#include <cstring>

#include "platform/src/message/flat_layout.h"

namespace nv::flat {

/// The caller has counted first: the whole length, the fields, the words among them.
class writer {
 public:
  writer(unsigned char* data, std::uint64_t length, std::size_t fields, std::size_t words)
      : entry_(entry(data, 0)), heap_(entry(data, fields)), end_(heap_) {
    setHeader(data, static_cast<std::size_t>(length), fields, words);
  }

  void word(std::uint32_t uid, std::uint32_t value) {
    store32(entry_, uid);
    setVal(entry_, value);
    entry_ += kEntry;
  }

  /// Place for a value of `size` bytes, to be filled by the caller.
  unsigned char* value(std::uint32_t uid, std::uint32_t size) {
    const std::uint32_t pad = padding(size);
    unsigned char* place = end_;
    word(uid, static_cast<std::uint32_t>(place - heap_) | pad);
    end_ += size + pad;
    if (pad != 0) store32(end_ - 4, 0);
    return place;
  }

  void value(std::uint32_t uid, byte_view bytes) {
    unsigned char* place = value(uid, static_cast<std::uint32_t>(bytes.size()));
    if (!bytes.empty()) std::memcpy(place, bytes.data(), bytes.size());
  }

 private:
  unsigned char* entry_;
  unsigned char* heap_;
  unsigned char* end_;
};

}  // namespace nv::flat
