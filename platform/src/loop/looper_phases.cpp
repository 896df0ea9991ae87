/// The phases of a pass, in their order.

#include <algorithm>
#include <iostream>
#include <utility>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/src/loop/looper_impl.h"

namespace nv {

using std::chrono::microseconds;
using std::chrono::steady_clock;

namespace {
// A shorter wait for company costs more than the flush that it may save.
constexpr microseconds kShortestLinger{20};
// How often a store that takes no changes is asked whether it does again.
constexpr microseconds kAskAgain = std::chrono::seconds(1);
constexpr unsigned kLingerShare = 10;  // of the last commit's time
}  // namespace

void Looper::Impl::waitForEvents(bool mayWait) {
  if (!loop) return;
  loop->wait(mayWait && !stopping && !hasWork() ? timeToSleep() : microseconds{0});
}

bool Looper::Impl::hasWork() const {
  const auto due = timers.nextDue();
  const bool batchWaits = stores && !lingerUntil_ && stores->canSubmit();
  // What was said between two passes, before the first one above all, is ready to leave.
  return (due && *due <= now()) || !localWork.empty() || !toFlush.empty() || outbox.hasReady() ||
         connections.hasGone() || connections.hasRelieved() || batchWaits;
}

std::optional<microseconds> Looper::Impl::timeToSleep() const {
  std::optional<microseconds> sleep;
  if (const auto due = timers.nextDue()) sleep = std::chrono::milliseconds(*due - now());
  if (stores && !stores->refusal().empty()) sleep = std::min(sleep.value_or(kAskAgain), kAskAgain);
  if (lingerUntil_) {
    const auto left = std::chrono::duration_cast<microseconds>(*lingerUntil_ - steady_clock::now());
    sleep = std::max(microseconds{0}, std::min(left, sleep.value_or(left)));
  }
  return sleep;
}

void Looper::Impl::takeCommitOutcome() {
  if (!stores) return;
  const auto outcome = stores->reap();
  if (!outcome) return;
  if (!outcome->error.empty()) return commitFailed(outcome->error);
  releaseDurable();
}

void Looper::Impl::fireTimers(std::uint64_t before) {
  while (auto function = timers.takeDue(now(), before)) {
    const Turn turn(*this);
    if (*function) (*function)();
  }
}

void Looper::Impl::deliverLocal() {
  for (auto left = localWork.size(); left > 0 && !localWork.empty(); --left) {
    const auto work = std::move(localWork.front());
    localWork.pop_front();
    const Turn turn(*this);
    work();
  }
}

void Looper::Impl::dropGone() {
  const auto gone = connections.takeGone();
  for (const auto connection : gone.clients) clientGone(connection);
  for (const auto connection : gone.services) {
    const Turn turn(*this);
    requests.connectionLost(connection);
  }
}

void Looper::Impl::clientGone(std::uint32_t connection) {
  message command;
  command.insert(key::command, cmd::routeGone);
  command.insert_vector(key::requester, connection);
  command.insert(key::replyMarker, kNoId);
  for (const auto id : handlerIds()) {
    const auto found = handlers.find(id);
    if (found == handlers.end()) continue;
    const Turn turn(*this);
    found->second->handleCmd(command, cmd::routeGone);
    // The service may have let the handler go.
    if (const auto still = handlers.find(id); still != handlers.end())
      still->second->dropSubscribers(connection);
  }
}

void Looper::Impl::runHooks() {
  for (std::size_t i = 0; i < hooks.size(); ++i) {
    const Turn turn(*this);
    if (hooks[i]) hooks[i]();  // may add hooks
  }
}

void Looper::Impl::handOver() {
  refuseWaiting();
  if (!stores || !stores->canSubmit() || shouldLinger()) return;
  lingerUntil_.reset();
  changingTurns_ = 0;
  stores->submit();
  takeCommitOutcome();  // an engine without a disk is done already
}

/// What waits for a batch that the engine does not take is answered: nobody knows when it will.
void Looper::Impl::refuseWaiting() {
  if (!stores || stores->failed()) return;
  if (const auto why = stores->refusal(); !why.empty())
    answerNotStored(stores->submitted(), "not on disk yet: " + why);
}

/// Whether the batch should wait a moment for more changes. Without it, clients that each wait for
/// their answer fall into two halves that take turns, and share half as many commits.
bool Looper::Impl::shouldLinger() {
  if (lingerUntil_) return steady_clock::now() < *lingerUntil_;
  const microseconds linger{stores->lastCommitMicroseconds() / kLingerShare};
  if (stopping || changingTurns_ < 2 || linger < kShortestLinger) return false;
  lingerUntil_ = steady_clock::now() + linger;
  return true;
}

void Looper::Impl::flushNotifies() {
  const auto relieved = connections.takeRelieved();
  for (const auto id : handlerIds())
    for (const auto connection : relieved) {
      const Turn turn(*this);
      if (const auto found = handlers.find(id); found != handlers.end())
        found->second->connectionDrained(connection);
    }
  for (const auto handler : std::exchange(toFlush, {})) {
    const Turn turn(*this);
    // One that was flushed before may have destroyed this one: only a registered one is alive for
    // sure.
    if (isRegistered(handler)) handler->flushNotifies();
  }
}

void Looper::Impl::sendReady() {
  releaseDurable();
  connections.flush();
}

void Looper::Impl::drain() {
  const auto error = stores ? stores->drain() : std::string();
  error.empty() ? sendReady() : commitFailed(error);
}

void Looper::Impl::releaseDurable() {
  outbox.release(stores ? stores->durable() : 0,
                 [this](Outgoing&& outgoing) { deliverOutgoing(std::move(outgoing)); });
}

void Looper::Impl::commitFailed(const std::string& error) {
  std::cout << "store: changes are lost: " << error << std::endl;
  storeFailed(error);
}

/// Tells those who wait for the disk that their change is lost, and ends the process: only the disk
/// knows now what is true.
void Looper::Impl::storeFailed(const std::string& error) {
  releaseDurable();
  answerNotStored(stores->durable(), error);
  connections.flush();
  exit(kNotStored);
}

/// Replaces the replies that wait for a change later than number `durable`.
void Looper::Impl::answerNotStored(std::uint64_t durable, const std::string& why) {
  for (auto& held : outbox.takeReplies(durable)) {
    auto refusal = errorMsg(err::notStored, why);
    refusal.insert(key::route, held.msg.get(key::route));
    connections.expected(held.connection, held.msg.bytes().size());
    connections.expect(held.connection, refusal.bytes().size());
    held.msg = std::move(refusal);
    deliverOutgoing(std::move(held));
  }
}

}  // namespace nv
