/// Reads the entries of a flat form that is known to be good.
#pragma once

#include "platform/src/flat_layout.h"

namespace nv::flat {

/// The index of an entry that is there, or at which it would have to be put.
struct place {
  std::uint32_t index;
  bool held;
};

/// A view; valid until the bytes move or change.
class table {
 public:
  explicit table(const unsigned char* data) : data_(data) {}

  const unsigned char* heap() const { return entry(data_, fields(data_)); }

  /// The entry of `uid`, null when there is none.
  const unsigned char* find(std::uint32_t uid) const {
    const unsigned char* near = nearest(uid);
    return near != nullptr && flat::uid(near) == uid ? near : nullptr;
  }

  /// Where the entry of `uid` is or belongs.
  place placeOf(std::uint32_t uid) const {
    const unsigned char* near = nearest(uid);
    if (near == nullptr) return {uid < kFirstValue ? 0 : words(data_), false};
    const auto index = static_cast<std::uint32_t>(near - entry(data_, 0)) / kEntry;
    return {index + std::uint32_t{flat::uid(near) < uid}, flat::uid(near) == uid};
  }

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

 private:
  /// The entry of `uid`, or a neighbour of the place where it belongs. Null when its part, words or
  /// values, has no entry.
  const unsigned char* nearest(std::uint32_t uid) const {
    const std::size_t wordCount = words(data_);
    const std::size_t isValue = uid >= kFirstValue;
    const std::size_t count = isValue != 0 ? fields(data_) - wordCount : wordCount;
    if (count == 0) return nullptr;
    return lastUpTo(entry(data_, wordCount * isValue), count, uid);
  }

  /// The last of `count` entries from `first` on with a UId up to `uid`; the first one when there
  /// is none. Halves without a branch on the data, which random keys would mispredict: hence the
  /// mask.
  static const unsigned char* lastUpTo(const unsigned char* first, std::size_t count,
                                       std::uint32_t uid) {
    while (count > 1) {
      const std::size_t half = kEntry * (count / 2);
      const std::size_t mask = -std::size_t{flat::uid(first + half) <= uid};
      first += half & mask;
      count -= count / 2;
    }
    return first;
  }

  const unsigned char* data_;
};

}  // namespace nv::flat
