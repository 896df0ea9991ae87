#include "platform/timer.h"

#include <utility>

#include "platform/src/loop/looper_impl.h"

namespace nv {

Timer::Timer(unsigned milliseconds, std::function<void()> function)
    : id_(theLoop().timers.add(theLoop().now() + milliseconds, std::move(function))) {}

Timer::Timer(Timer&& other) noexcept : id_(std::exchange(other.id_, 0)) {}

Timer& Timer::operator=(Timer&& other) noexcept {
  // What is stopped may own this timer: it goes last.
  Timer stopped;
  stopped.id_ = std::exchange(id_, std::exchange(other.id_, 0));
  return *this;
}

void Timer::stop() {
  if (const auto id = std::exchange(id_, 0)) theLoop().timers.remove(id);
}

bool Timer::running() const { return id_ != 0 && theLoop().timers.contains(id_); }

}  // namespace nv
