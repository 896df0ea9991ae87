#include "platform/src/loop/looper_impl.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/src/bus/envelope.h"

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

Looper::Impl::Impl(Platform platform)
    : limits(platform.limits),
      loop(std::move(platform.loop)),
      exit(std::move(platform.exit)),
      undo(limits.undoRecords, limits.undoBytes),
      connections(std::move(platform.transport), limits, std::move(platform.rights), *this) {
  if (platform.stores) useStores(std::move(platform.stores));
}

void Looper::Impl::useStores(std::unique_ptr<StoreEngine> engine) {
  stores = std::make_unique<CommitQueue>(std::move(engine));
  stores->engine().onOutcome([engine = loop.get()] {
    if (engine) engine->wake();
  });
  stores->onUnreadable([this](const std::string& why) {
    std::cout << "store: " << why << std::endl;
    storeFailed(why);
  });
}

Looper::Impl::~Impl() {
  // The writer thread may still want to wake the loop.
  stores.reset();
}

Looper::Impl::Turn::Turn(Impl& impl)
    : impl_(impl), changesBefore_(impl.stores ? impl.stores->made() : 0) {
  ++impl_.turnDepth_;
}

Looper::Impl::Turn::~Turn() {
  if (--impl_.turnDepth_ != 0) return;
  const auto made = impl_.stores ? impl_.stores->made() : 0;
  const bool settle =
      std::exchange(impl_.settleTurn_, false) && impl_.stores && !impl_.stores->allDurable();
  const bool changed = made != changesBefore_;
  if (changed) ++impl_.changingTurns_;
  impl_.outbox.endTurn(changed || settle ? made : 0);
}

// --- routes

Handler* Looper::Impl::localHandler(const std::vector<std::uint32_t>& route) const {
  if (!isLocal(route)) return nullptr;
  const auto found = handlers.find(route.back());
  return found == handlers.end() ? nullptr : found->second;
}

bool Looper::Impl::isLocal(const std::vector<std::uint32_t>& route) const {
  if (route.empty() || route.size() > 2) return false;
  if (address) return route[0] == *address;
  return route.size() == 1 && handlers.contains(route[0]);
}

std::vector<std::uint32_t> Looper::Impl::routeOf(const Handler& handler) const {
  for (const auto& [id, registered] : handlers) {
    if (registered != &handler) continue;
    if (!address || *address == id) return {id};
    return {*address, id};
  }
  return {};
}

std::vector<std::uint32_t> Looper::Impl::handlerIds() const {
  std::vector<std::uint32_t> ids;
  for (const auto& entry : handlers) ids.push_back(entry.first);
  return ids;
}

void Looper::Impl::dispatch(const message& request) {
  if (const auto handler = localHandler(request.get(key::route)))
    return getLooper()->deliver(*handler, request);
  const Turn turn(*this);
  reply(request, errorMsg(err::noRoute, "no handler is registered there"));
}

// --- what is said

void Looper::Impl::say(Outgoing outgoing) {
  if (outgoing.kind == Outgoing::Kind::reply || outgoing.kind == Outgoing::Kind::notification)
    connections.expect(outgoing.connection, outgoing.msg.bytes().size());
  if (turnDepth_ == 0) settleTurn();  // said outside of any turn, it waits for all that was stored
  const Turn turn(*this);
  outbox.say(std::move(outgoing));
}

void Looper::Impl::request(std::uint32_t tag, message msg) {
  say({Outgoing::Kind::request, 0, tag != 0 ? tag : requests.freshTag(), std::move(msg)});
}

void Looper::Impl::reply(const message& request, message msg) {
  const auto route = msg.get(key::route);
  // The requester that the bus has stamped counts, whatever an object put into the answer.
  const auto asker = requesterOf(request);
  const auto to = asker != 0 || route.empty() ? asker : route[0];
  const auto tag = request.get(key::tag);
  if (tag == 0) return;
  msg.insert_vector(key::route, to);
  if (to != kSelf && !connections.claimReply(to, tag)) return;
  if (request.get(key::settled)) settleTurn();
  say({Outgoing::Kind::reply, to, tag, std::move(msg)});
}

void Looper::Impl::notify(std::uint32_t connection, std::uint32_t tag, message msg) {
  settleTurn();
  say({Outgoing::Kind::notification, connection, tag, std::move(msg)});
}

void Looper::Impl::publishUndo(message record) {
  say({Outgoing::Kind::undo, 0, 0, std::move(record)});
}

// --- on the way out

void Looper::Impl::deliverOutgoing(Outgoing&& outgoing) {
  using Kind = Outgoing::Kind;
  if (outgoing.kind == Kind::undo) return undo.add(std::move(outgoing.msg));
  if (outgoing.kind == Kind::request) return deliverRequest(std::move(outgoing));

  const bool isReply = outgoing.kind == Kind::reply;
  if (outgoing.connection != kSelf) {
    connections.expected(outgoing.connection, outgoing.msg.bytes().size());
    return connections.send(outgoing.connection, isReply ? Frame::reply : Frame::notification,
                            outgoing.tag, std::move(outgoing.msg));
  }
  localWork.push_back([this, isReply, tag = outgoing.tag, msg = std::move(outgoing.msg)] {
    isReply ? requests.answer(tag, msg) : requests.notify(tag, msg);
  });
}

void Looper::Impl::deliverRequest(Outgoing&& outgoing) {
  auto& msg = outgoing.msg;
  const auto route = msg.get(key::route);
  if (isLocal(route)) {
    requests.sentOver(outgoing.tag, kSelf);
    msg.insert_vector(key::requester, kSelf);
    msg.insert(key::tag, outgoing.tag);
    localWork.push_back([this, msg = std::move(msg)] { dispatch(msg); });
    return;
  }
  const auto connection = route.empty() ? 0 : connections.to(route[0]);
  if (connection != 0) {
    requests.sentOver(outgoing.tag, connection);
    return connections.send(connection, Frame::request, outgoing.tag, std::move(msg));
  }
  localWork.push_back([this, tag = outgoing.tag] {
    requests.answer(tag, errorMsg(err::noRoute, "nobody listens there"));
  });
}

// --- the phases of a pass

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

void Looper::Impl::fireTimers() {
  const auto before = TimerQueue::nextNumber();
  while (auto function = timers.takeDue(now(), before)) {
    const Turn turn(*this);
    (*function)();
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
    hooks[i]();  // may add hooks
  }
}

void Looper::Impl::handOver() {
  if (!stores || !stores->canSubmit() || shouldLinger()) return;
  lingerUntil_.reset();
  changingTurns_ = 0;
  stores->submit();
  takeCommitOutcome();  // an engine without a disk is done already
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
    // One that was flushed before may have destroyed this one: only a registered one is alive for
    // sure.
    const auto alive = std::any_of(handlers.begin(), handlers.end(), [handler](const auto& entry) {
      return entry.second == handler;
    });
    const Turn turn(*this);
    if (alive) handler->flushNotifies();
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
  for (auto& held : outbox.takeHeld()) {
    if (held.kind != Outgoing::Kind::reply) continue;
    auto refusal = errorMsg(err::notStored, error);
    refusal.insert(key::route, held.msg.get(key::route));
    connections.expected(held.connection, held.msg.bytes().size());
    connections.send(held.connection, Frame::reply, held.tag, std::move(refusal));
  }
  connections.flush();
  exit(kNotStored);
}

// --- what arrives

void Looper::Impl::requestArrived(message request) { dispatch(request); }

void Looper::Impl::replyArrived(std::uint32_t tag, message reply) {
  const Turn turn(*this);
  requests.answer(tag, reply);
}

void Looper::Impl::notificationArrived(std::uint32_t tag, message notification) {
  const Turn turn(*this);
  requests.notify(tag, notification);
}

}  // namespace nv
