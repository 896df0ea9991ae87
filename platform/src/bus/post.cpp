#include "platform/post.h"

#include <utility>

#include "platform/observer.h"
#include "platform/src/bus/observer_call.h"
#include "platform/src/loop/looper_impl.h"

namespace nv {

Post::Post(message& request, std::function<void(const message&)> done, std::uint32_t timeout)
    : tag_(theLoop().requests.await(std::move(done), timeout)) {
  const ObserverCall call(
      [tag = tag_](const message& reply) { theLoop().requests.answer(tag, reply); });
  auto* const watcher = observer();
  if (watcher && watcher->post(request, call.answer())) return;
  theLoop().request(tag_, request);
}

Post::Post(Post&& other) noexcept : tag_(std::exchange(other.tag_, 0)) {}

Post& Post::operator=(Post&& other) noexcept {
  // What is cancelled may own this Post: it goes last.
  Post cancelled;
  cancelled.tag_ = std::exchange(tag_, std::exchange(other.tag_, 0));
  return *this;
}

void Post::cancel() {
  if (const auto tag = std::exchange(tag_, 0)) theLoop().requests.forget(tag);
}

bool Post::pending() const { return tag_ != 0 && theLoop().requests.awaits(tag_); }

}  // namespace nv
