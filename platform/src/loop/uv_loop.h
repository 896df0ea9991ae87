/// The real loop: libuv.
#pragma once

#include <uv.h>

#include "platform/loop_engine.h"

namespace nv {

/// Waits in libuv for sockets and wake-ups, on the monotonic clock.
class UvLoop : public LoopEngine {
 public:
  UvLoop();
  ~UvLoop() override;
  UvLoop(const UvLoop&) = delete;

  std::uint64_t now() const override { return uv_now(&loop_); }
  void wait(std::optional<std::chrono::microseconds> timeout) override;
  void wake() noexcept override { uv_async_send(&wakeUp_); }

  std::unique_ptr<Watch> watch(int fd, std::function<void()> readable) override;

  uv_loop_t* uv() { return &loop_; }

 private:
  void pollFor(std::chrono::microseconds timeout);

  uv_loop_t loop_;
  uv_async_t wakeUp_;
  uv_timer_t deadline_;
};

}  // namespace nv
