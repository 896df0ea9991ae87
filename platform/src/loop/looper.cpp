#include "platform/looper.h"

#include <cstdlib>
#include <iostream>
#include <utility>

#include <unistd.h>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/observer.h"
#include "platform/src/bus/following.h"
#include "platform/src/loop/looper_impl.h"

namespace nv {

namespace {
std::uint32_t rootAndOwnUserAreTheSystem(const Peer& peer) {
  return peer.uid == 0 || peer.uid == ::geteuid() ? kSystemRights : 0;
}
}  // namespace

Looper::Looper() { assemble({}); }

Looper::~Looper() = default;

void Looper::assemble(Platform platform) {
  if (!platform.rights) platform.rights = rootAndOwnUserAreTheSystem;
  if (!platform.exit) platform.exit = [](int status) { std::_Exit(status); };
  std::deque<std::function<void()>> hooks;
  if (impl_) hooks = std::move(impl_->hooks);
  forgetFollows();
  // What goes with the old parts may still reach for the loop: the new ones are in place by then.
  const auto old = std::exchange(impl_, std::make_unique<Impl>(std::move(platform)));
  impl_->hooks = std::move(hooks);
  setCommitQueue(impl_->stores.get());
}

void Looper::useStores(std::unique_ptr<StoreEngine> stores) {
  impl_->useStores(std::move(stores));
  setCommitQueue(impl_->stores.get());
}

std::string Looper::listen(std::uint32_t address, const std::string& name) {
  auto error = impl_->connections.listen(address, name);
  if (error.empty()) impl_->address = address;
  return error;
}

void Looper::addHandler(std::uint32_t id, Handler* handler) {
  auto* const before = std::exchange(impl_->handlers[id], handler);
  if (handler->hasNotifies()) impl_->toFlush.insert(handler);
  if (before && !impl_->isRegistered(before)) before->endSubscriptions();
}

void Looper::removeHandler(Handler* handler) {
  impl_->toFlush.erase(handler);
  const auto removed = std::erase_if(
      impl_->handlers, [handler](const auto& entry) { return entry.second == handler; });
  if (removed > 0) handler->endSubscriptions();
}

void Looper::send(message request) {
  if (auto* const watcher = observer()) watcher->sent(request);
  impl_->request(0, std::move(request));
}

int Looper::run() {
  if (!impl_->loop) {
    std::cerr << "the loop of this process has nothing to wait with: make a Service, or connectBus"
              << std::endl;
    return EXIT_FAILURE;
  }
  while (!impl_->stopping) runOnce(true);
  runOnce(false);  // what the last turn said and stored
  impl_->drain();
  return impl_->status;
}

void Looper::stop(int status) {
  impl_->status = status;
  impl_->stopping = true;
  if (impl_->loop) impl_->loop->wake();
}

void Looper::runOnce(bool mayWait) {
  auto& loop = *impl_;
  const auto newTimers = TimerQueue::nextNumber();
  loop.waitForEvents(mayWait);
  loop.takeCommitOutcome();
  loop.fireTimers(newTimers);
  loop.deliverLocal();
  loop.dropGone();
  loop.runHooks();
  loop.handOver();
  loop.flushNotifies();
  loop.sendReady();
}

bool Looper::hasWork() const { return impl_->hasWork(); }

std::optional<std::uint64_t> Looper::nextTimer() const { return impl_->timers.nextDue(); }

void Looper::deliver(Handler& handler, const message& cmd) {
  const Impl::Turn turn(*impl_);
  const auto code = cmd.get(key::command);
  if (!handler.isAllowed(cmd))
    return handler.replyMessage(cmd, errorMsg(err::notAllowed, "not allowed"));
  if (impl_->stores && cmd::isChange(code)) {
    const auto refusal = impl_->stores->engine().refusal();
    if (!refusal.empty()) return handler.replyMessage(cmd, errorMsg(err::notStored, refusal));
  }
  handler.handleCmd(cmd, code);
}

Looper* getLooper() {
  static auto* const looper = new Looper;
  return looper;
}

}  // namespace nv
