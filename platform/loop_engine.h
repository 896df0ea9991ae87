/// Where the loop gets time and events: a seam with a real and a virtual implementation.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/export.h"

namespace nv {

/// Waits for events and keeps the clock. Loop thread only, except `wake`.
class CONFKIT_API LoopEngine {
 public:
  virtual ~LoopEngine() = default;

  /// Milliseconds on a clock that never goes back. It stands still while callbacks run and moves in
  /// `wait`.
  virtual std::uint64_t now() const = 0;
  /// Delivers the events that are there; when there are none, waits for some, at most `timeout`
  /// (none: as long as it takes).
  virtual void wait(std::optional<std::chrono::microseconds> timeout) = 0;
  /// Ends a `wait` that is under way, or the next one. From any thread and from signal handlers.
  virtual void wake() noexcept = 0;

  /// A descriptor that is looked at until this is destroyed, which comes before the engine's end.
  class Watch {
   public:
    virtual ~Watch() = default;
  };
  /// Calls `readable` from each `wait` in which `fd` can be read without waiting, its end and its
  /// errors included; that call may destroy the Watch. Null: this engine looks at no descriptors,
  /// or not at this one.
  virtual std::unique_ptr<Watch> watch(int fd, std::function<void()> readable);
};

}  // namespace nv
