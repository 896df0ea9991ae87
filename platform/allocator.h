/// Ids in use, out of a range.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>

#include "platform/export.h"

namespace nv {

/// A set of used ids within [min, max], kept as intervals: every operation is O(log n) in the
/// number of gaps, and a range of four thousand million ids costs nothing while it is empty.
///
/// A range with min > max is empty: nothing can be allocated and nothing is unused.
class CONFKIT_API Allocator {
  using Intervals =
      std::map<std::uint32_t, std::uint32_t>;  // lowest -> highest id of a used interval

 public:
  Allocator(std::uint32_t min, std::uint32_t max) : min_(min), max_(max) {}

  /// Claims the lowest free id and returns it; 0xffffffff when none is free.
  std::uint32_t allocate();
  /// Claims `id` and returns it, also when it was claimed before. Outside the range: 0xffffffff, no
  /// effect.
  std::uint32_t allocate(std::uint32_t id);
  /// Releases `id`; nothing happens when it is free or outside the range.
  void free(std::uint32_t id);
  /// Whether `id` is claimed; false outside the range.
  bool isAllocated(std::uint32_t id) const;

  /// The id that `allocate()` would claim; 0xffffffff when none is free.
  std::uint32_t lowestFree() const;

  std::uint32_t min() const { return min_; }
  std::uint32_t max() const { return max_; }
  /// How many ids are claimed. 64 bits, since a full 32-bit range has 2^32 ids.
  std::uint64_t used() const { return used_; }
  /// How many intervals without a gap they form: what the set takes in memory.
  std::size_t intervals() const { return intervals_.size(); }
  /// How many ids can still be claimed.
  std::uint64_t unused() const { return size() - used_; }

  /// Walks the claimed ids in ascending order. A claim or a release ends the validity of iterators.
  /// A loop that changes the allocator goes on at `lowerBound` instead.
  class CONFKIT_API iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = std::uint32_t;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = std::uint32_t;

    iterator(Intervals::const_iterator at, Intervals::const_iterator end);
    std::uint32_t operator*() const { return id_; }
    iterator& operator++();
    bool operator==(const iterator& other) const { return at_ == other.at_ && id_ == other.id_; }

   private:
    friend class Allocator;
    Intervals::const_iterator at_, end_;
    std::uint32_t id_;
  };
  iterator begin() const { return {intervals_.begin(), intervals_.end()}; }
  iterator end() const { return {intervals_.end(), intervals_.end()}; }
  /// The lowest claimed id that is not below `id`, as an iterator.
  iterator lowerBound(std::uint32_t id) const;
  /// The highest claimed id. Requires: there is one.
  std::uint32_t highest() const { return intervals_.rbegin()->second; }

 private:
  std::uint64_t size() const { return min_ > max_ ? 0 : std::uint64_t{max_} - min_ + 1; }

  std::uint32_t min_, max_;
  std::uint64_t used_ = 0;
  Intervals intervals_;
};

}  // namespace nv
