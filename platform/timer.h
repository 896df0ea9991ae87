/// One-shot timers of the event loop.
#pragma once

#include <cstdint>
#include <functional>

#include "platform/export.h"

namespace nv {

/// Calls a function once, after an interval. Destruction stops it, and so does assigning another
/// timer. Time stands still while callbacks run, so an interval counts from the start of the pass
/// that began it.
class CONFKIT_API Timer {
 public:
  /// An idle timer.
  Timer() = default;
  /// `milliseconds` 0: in the next pass of the loop, never in the one that is running. The function
  /// may destroy or assign this timer: it is moved out before it is called.
  Timer(unsigned milliseconds, std::function<void()> function);
  ~Timer() { stop(); }
  Timer(Timer&& other) noexcept;
  Timer& operator=(Timer&& other) noexcept;

  void stop();
  /// Whether the function is still to be called.
  bool running() const;

 private:
  std::uint64_t id_ = 0;  // 0: idle; else the number that the loop's queue gave
};

}  // namespace nv
