/// A loop whose clock moves when a test says so.
#pragma once

#include <functional>

#include "platform/loop_engine.h"

namespace nv::testkit {

/// Never waits: `wait` delivers what the source of events has and returns.
class VirtualLoop : public LoopEngine {
 public:
  std::uint64_t now() const override { return now_; }
  void wait(std::optional<std::chrono::microseconds> timeout) override;
  void wake() noexcept override {}

  void setNow(std::uint64_t now) { now_ = now; }
  /// Called by each `wait`.
  void setEvents(std::function<void()> deliver) { deliver_ = std::move(deliver); }

 private:
  std::uint64_t now_ = 1000;
  std::function<void()> deliver_;
};

}  // namespace nv::testkit
