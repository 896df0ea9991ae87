#include "platform/follow.h"

#include <memory>
#include <unordered_map>
#include <utility>

#include "platform/observer.h"
#include "platform/src/bus/following.h"
#include "platform/src/bus/observer_call.h"

namespace nv {

namespace {
using Registry = std::unordered_map<void*, std::shared_ptr<Following>>;

Registry& follows() {
  static auto* const registry = new Registry;
  return *registry;
}
}  // namespace

void forgetFollows() {
  // What the functions hold may end other follows when it goes: those are not to be found any more.
  const auto forgotten = std::exchange(follows(), {});
  for (const auto& [handle, following] : forgotten) following->forget();
}

void* follow(std::function<void(const message&)> callback, const message& target,
             bool waitInitial) {
  const auto following = std::make_shared<Following>(std::move(callback), target);
  void* const handle = following.get();
  follows().emplace(handle, following);
  const ObserverCall call([weak = std::weak_ptr(following)](const message& msg) {
    if (const auto alive = weak.lock()) alive->deliver(msg);
  });
  auto* const watcher = observer();
  if (!watcher || !watcher->follow(handle, target, waitInitial, call.answer())) following->start();
  return handle;
}

void stopFollow(void* handle) {
  if (!handle) return;
  if (auto* const watcher = observer()) watcher->followStopped(handle);
  const auto following = follows().extract(handle);
  if (following) following.mapped()->stop();
}

}  // namespace nv
