#include "platform/src/loop/timer_queue.h"

namespace nv {

namespace {
std::uint64_t lastNumber = 0;
}

std::uint64_t TimerQueue::nextNumber() { return lastNumber + 1; }

std::uint64_t TimerQueue::add(std::uint64_t due, Function function) {
  const auto number = ++lastNumber;
  byDue_.emplace(std::pair{due, number}, std::move(function));
  dueOf_.emplace(number, due);
  return number;
}

void TimerQueue::remove(std::uint64_t number) {
  const auto due = dueOf_.find(number);
  if (due == dueOf_.end()) return;
  // The function may own what it captures: it is destroyed when the queue is consistent again.
  auto node = byDue_.extract({due->second, number});
  dueOf_.erase(due);
}

std::optional<std::uint64_t> TimerQueue::nextDue() const {
  if (byDue_.empty()) return std::nullopt;
  return byDue_.begin()->first.first;
}

std::optional<TimerQueue::Function> TimerQueue::takeDue(std::uint64_t now, std::uint64_t before) {
  for (auto timer = byDue_.begin(); timer != byDue_.end() && timer->first.first <= now; ++timer) {
    if (timer->first.second >= before) continue;
    auto node = byDue_.extract(timer);
    dueOf_.erase(node.key().second);
    return std::move(node.mapped());
  }
  return std::nullopt;
}

}  // namespace nv
