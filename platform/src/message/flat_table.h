/// Reads the entries of a flat form that is known to be good.
#pragma once

#include "platform/src/message/flat_layout.h"

namespace nv::flat {

/// Where, in bytes from the beginning, an entry is or would have to be put.
struct place {
  std::uint32_t at;
  bool held;
};

/// A view; valid until the bytes move or change. Searches name the part of the entries, the words
/// or the values, that a UId belongs to: callers mostly know.
class table {
 public:
  struct part {
    const unsigned char* first;
    std::uint32_t count;
  };

  explicit table(const unsigned char* data) : data_(data) {}

  const unsigned char* heap() const { return entry(data_, fields(data_)); }

  part words() const { return {entry(data_, 0), flat::words(data_)}; }
  part values() const {
    const std::uint32_t words = flat::words(data_);
    return {entry(data_, words), fields(data_) - words};
  }
  part partOf(std::uint32_t uid) const { return uid < kFirstValue ? words() : values(); }

  /// The entry of `uid`, null when there is none.
  const unsigned char* find(part in, std::uint32_t uid) const {
    if (in.count == 0) return nullptr;
    const unsigned char* near = lastUpTo(in.first, in.count, uid);
    return flat::uid(near) == uid ? near : nullptr;
  }

  /// Where the entry of `uid` is or belongs.
  place placeOf(part in, std::uint32_t uid) const {
    if (in.count == 0) return {static_cast<std::uint32_t>(in.first - data_), false};
    const unsigned char* near = lastUpTo(in.first, in.count, uid);
    const std::uint32_t behind = flat::uid(near) < uid ? kEntry : 0;
    return {static_cast<std::uint32_t>(near - data_) + behind, flat::uid(near) == uid};
  }

  place placeOf(std::uint32_t uid) const { return placeOf(partOf(uid), uid); }

  /// Where in the heap the value of an entry begins; for the end of the entries, where the heap
  /// ends.
  std::uint32_t offsetAt(const unsigned char* at) const {
    // Without a branch: which value is the last is as random as the key.
    const auto heapAt = static_cast<std::uint32_t>(heap() - data_);
    const auto entryAt = static_cast<std::uint32_t>(at - data_);
    const std::uint32_t isEnd = -std::uint32_t{entryAt == heapAt};
    return (load32(data_ + ((entryAt + 4) & ~isEnd)) & ~kPadMask) - (heapAt & isEnd);
  }

  byte_view valueAt(const unsigned char* at) const {
    const std::uint32_t begin = val(at) & ~kPadMask;
    const std::uint32_t end = offsetAt(at + kEntry) - (val(at) & kPadMask);
    return {heap() + begin, end - begin};
  }

  /// The value of any entry, that of a word where it stands in the entry.
  byte_view bytesAt(const unsigned char* at) const {
    return uid(at) < kFirstValue ? byte_view{at + 4, 4} : valueAt(at);
  }

 private:
  /// The last of `count` entries from `first` on with a UId up to `uid`; the first one when there
  /// is none. The odds given keep the compiler from a branch, which random keys would mispredict.
  static const unsigned char* lastUpTo(const unsigned char* first, std::uint32_t count,
                                       std::uint32_t uid) {
    while (count > 1) {
      const unsigned char* half = first + kEntry * (count / 2);
      const bool isFurther = flat::uid(half) <= uid;
      first = __builtin_expect_with_probability(isFurther, 1, 0.5) ? half : first;
      count -= count / 2;
    }
    return first;
  }

  const unsigned char* data_;
};

}  // namespace nv::flat
