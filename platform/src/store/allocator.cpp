#include "platform/allocator.h"

#include <iterator>

namespace nv {

namespace {

constexpr std::uint32_t kNone = 0xffffffff;

}  // namespace

std::uint32_t Allocator::lowestFree() const {
  if (unused() == 0) return kNone;
  const auto first = intervals_.begin();
  return first == intervals_.end() || first->first > min_ ? min_ : first->second + 1;
}

std::uint32_t Allocator::allocate() {
  const auto id = lowestFree();
  // 0xffffffff may also be the last free id of the range.
  return unused() == 0 ? kNone : allocate(id);
}

std::uint32_t Allocator::allocate(std::uint32_t id) {
  if (id < min_ || id > max_) return kNone;
  const auto above = intervals_.upper_bound(id);
  const auto below = above == intervals_.begin() ? intervals_.end() : std::prev(above);
  if (below != intervals_.end() && id <= below->second) return id;

  const bool touchesBelow = below != intervals_.end() && below->second + 1 == id;
  const bool touchesAbove = above != intervals_.end() && above->first - 1 == id;
  const std::uint32_t last = touchesAbove ? above->second : id;
  if (touchesAbove) intervals_.erase(above);
  if (touchesBelow)
    below->second = last;
  else
    intervals_.emplace(id, last);
  ++used_;
  return id;
}

void Allocator::free(std::uint32_t id) {
  if (!isAllocated(id)) return;
  const auto at = std::prev(intervals_.upper_bound(id));
  const std::uint32_t last = at->second;
  if (id < last) intervals_.emplace(id + 1, last);
  if (at->first == id)
    intervals_.erase(at);
  else
    at->second = id - 1;
  --used_;
}

bool Allocator::isAllocated(std::uint32_t id) const {
  const auto above = intervals_.upper_bound(id);
  return above != intervals_.begin() && id <= std::prev(above)->second;
}

Allocator::iterator Allocator::lowerBound(std::uint32_t id) const {
  auto at = intervals_.upper_bound(id);
  if (at != intervals_.begin() && id <= std::prev(at)->second) {
    iterator found{std::prev(at), intervals_.end()};
    found.id_ = id;
    return found;
  }
  return {at, intervals_.end()};
}

Allocator::iterator::iterator(Intervals::const_iterator at, Intervals::const_iterator end)
    : at_(at), end_(end), id_(at == end ? 0 : at->first) {}

Allocator::iterator& Allocator::iterator::operator++() {
  if (id_ < at_->second) {
    ++id_;
  } else {
    ++at_;
    id_ = at_ == end_ ? 0 : at_->first;
  }
  return *this;
}

}  // namespace nv
