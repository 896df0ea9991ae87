#include "platform/src/loop/uv_loop.h"

#include <cstdlib>
#include <iostream>

#include <poll.h>

namespace nv {

using std::chrono::microseconds;
using std::chrono::milliseconds;

UvLoop::UvLoop() {
  if (uv_loop_init(&loop_) != 0) {
    std::cerr << "cannot start an event loop" << std::endl;
    std::abort();
  }
  uv_async_init(&loop_, &wakeUp_, [](uv_async_t*) {});
  uv_timer_init(&loop_, &deadline_);
}

UvLoop::~UvLoop() {
  uv_close(reinterpret_cast<uv_handle_t*>(&wakeUp_), nullptr);
  uv_close(reinterpret_cast<uv_handle_t*>(&deadline_), nullptr);
  uv_run(&loop_, UV_RUN_DEFAULT);
  uv_loop_close(&loop_);
}

void UvLoop::wait(std::optional<microseconds> timeout) {
  if (timeout && *timeout < milliseconds(1)) {
    // libuv counts in milliseconds: a shorter wait is made on the descriptor that it offers for
    // this.
    if (*timeout > microseconds(0)) pollFor(*timeout);
    uv_run(&loop_, UV_RUN_NOWAIT);
    return;
  }
  if (timeout) {
    // It may be over before libuv begins to wait: without the stop that wait would have no end.
    const auto up = std::chrono::ceil<milliseconds>(*timeout);
    uv_timer_start(
        &deadline_, [](uv_timer_t* timer) { uv_stop(timer->loop); },
        static_cast<std::uint64_t>(up.count()), 0);
  }
  uv_run(&loop_, UV_RUN_ONCE);
  uv_timer_stop(&deadline_);
}

void UvLoop::pollFor(microseconds timeout) {
  pollfd fd{uv_backend_fd(&loop_), POLLIN, 0};
  const timespec limit{0, static_cast<long>(std::chrono::nanoseconds(timeout).count())};
  if (uv_backend_timeout(&loop_) != 0) ppoll(&fd, 1, &limit, nullptr);
}

}  // namespace nv
