#include "platform/src/loop/uv_loop.h"

#include <cstdlib>
#include <iostream>
#include <utility>

#include <poll.h>

namespace nv {

using std::chrono::microseconds;
using std::chrono::milliseconds;

namespace {

/// libuv has the handle until it is closed, and with it the function that may have asked for that.
class UvWatch : public LoopEngine::Watch {
 public:
  UvWatch(uv_loop_t* loop, int fd, std::function<void()> readable)
      : poll_(new Poll{{}, std::move(readable)}) {
    if (uv_poll_init(loop, &poll_->handle, fd) != 0) {
      delete std::exchange(poll_, nullptr);
      return;
    }
    poll_->handle.data = poll_;
    uv_poll_start(&poll_->handle, UV_READABLE,
                  [](uv_poll_t* handle, int, int) { pollOf(handle)->readable(); });
  }
  ~UvWatch() override {
    if (poll_ == nullptr) return;
    uv_close(reinterpret_cast<uv_handle_t*>(&poll_->handle),
             [](uv_handle_t* handle) { delete pollOf(handle); });
  }
  UvWatch(const UvWatch&) = delete;
  bool works() const { return poll_ != nullptr; }

 private:
  struct Poll {
    uv_poll_t handle;
    std::function<void()> readable;
  };
  template <class Handle>
  static Poll* pollOf(Handle* handle) {
    return static_cast<Poll*>(handle->data);
  }

  Poll* poll_;
};

}  // namespace

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

std::unique_ptr<LoopEngine::Watch> UvLoop::watch(int fd, std::function<void()> readable) {
  auto made = std::make_unique<UvWatch>(&loop_, fd, std::move(readable));
  return made->works() ? std::move(made) : nullptr;
}

void UvLoop::pollFor(microseconds timeout) {
  pollfd fd{uv_backend_fd(&loop_), POLLIN, 0};
  const timespec limit{0, static_cast<long>(std::chrono::nanoseconds(timeout).count())};
  if (uv_backend_timeout(&loop_) != 0) ppoll(&fd, 1, &limit, nullptr);
}

}  // namespace nv
