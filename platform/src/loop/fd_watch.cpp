#include "platform/fd_watch.h"

#include <utility>

#include "platform/src/loop/looper_impl.h"

namespace nv {

std::unique_ptr<LoopEngine::Watch> LoopEngine::watch(int, std::function<void()>) { return nullptr; }

FdWatch::FdWatch(int fd, std::function<void()> readable) {
  auto& loop = theLoop();
  if (!loop.loop) return;
  watch_ = loop.loop->watch(fd, [&loop, readable = std::move(readable)] {
    const Looper::Impl::Turn turn(loop);
    readable();
  });
}

}  // namespace nv
