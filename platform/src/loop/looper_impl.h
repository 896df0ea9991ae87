/// The parts of the loop and how they meet.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/handler.h"
#include "platform/looper.h"
#include "platform/src/bus/connections.h"
#include "platform/src/bus/requests.h"
#include "platform/src/bus/undo_log.h"
#include "platform/src/bus/waiting_requests.h"
#include "platform/src/loop/outbox.h"
#include "platform/src/loop/timer_queue.h"
#include "platform/src/store/commit_queue.h"

namespace nv {

struct Looper::Impl : ConnectionEvents {
  explicit Impl(Platform platform);
  ~Impl() override;

  /// All that one event, timer, answer or hook does. What it says waits for what it stored.
  class Turn {
   public:
    explicit Turn(Impl& impl);
    ~Turn();

   private:
    Impl& impl_;
    std::uint64_t changesBefore_;
  };

  void useStores(std::unique_ptr<StoreEngine> engine);
  std::uint64_t now() const { return loop ? loop->now() : 0; }

  // Where requests go.
  /// The handler that a route leads to in this process; null: it leads elsewhere, or nowhere.
  Handler* localHandler(const std::vector<std::uint32_t>& route) const;
  bool isLocal(const std::vector<std::uint32_t>& route) const;
  bool isRegistered(const Handler* handler) const;
  std::vector<std::uint32_t> routeOf(const Handler& handler) const;
  std::vector<std::uint32_t> handlerIds() const;
  void dispatch(const message& request);

  // What handlers and services say.
  void request(std::uint32_t tag, message msg);
  void reply(const message& request, message msg);
  void notify(std::uint32_t connection, std::uint32_t tag, message msg);
  /// No notification of a subscription follows.
  void endSubscription(std::uint32_t connection, std::uint32_t tag);
  void publishUndo(message record);
  /// What this turn says waits for all changes made so far, by whomever.
  void settleTurn() { settleTurn_ = true; }

  // The phases of a pass, in order.
  void waitForEvents(bool mayWait);
  void takeCommitOutcome();
  /// Those that are older than timer number `before`.
  void fireTimers(std::uint64_t before);
  void deliverLocal();
  void dropGone();
  void runHooks();
  void handOver();
  void flushNotifies();
  void sendReady();
  /// Waits until all changes are on disk and sends what waited for them.
  void drain();
  /// Whether a pass would find something to do at the present time.
  bool hasWork() const;

  void requestArrived(message request) override;
  void replyArrived(std::uint32_t connection, std::uint32_t tag, message reply) override;
  void notificationArrived(std::uint32_t connection, std::uint32_t tag,
                           message notification) override;
  void subscriptionEnded(std::uint32_t connection, std::uint32_t tag) override;

  Limits limits;
  std::unique_ptr<LoopEngine> loop;
  std::unique_ptr<CommitQueue> stores;
  std::function<void(int)> exit;
  TimerQueue timers;
  Outbox outbox{limits.undoRecords, limits.undoBytes};
  Requests requests;
  WaitingRequests waitingRequests{requests, [this](Outgoing& it) { return sendToService(it); }};
  UndoLog undo;
  Connections connections;
  std::optional<std::uint32_t> address;         // taken on the bus
  std::map<std::uint32_t, Handler*> handlers;   // by registered id
  std::set<Handler*> toFlush;                   // have notifications queued
  std::deque<std::function<void()>> hooks;      // before sleep
  std::deque<std::function<void()>> localWork;  // deliveries within this process
  std::atomic<bool> stopping = false;
  std::atomic<int> status = 0;

 private:
  void say(Outgoing outgoing);
  void deliverOutgoing(Outgoing&& outgoing);
  void deliverToSelf(Outgoing&& outgoing);
  void deliverRequest(Outgoing&& outgoing);
  bool sendToService(Outgoing& outgoing);
  void releaseDurable();
  void commitFailed(const std::string& error);
  void storeFailed(const std::string& error);
  void refuseWaiting();
  void answerNotStored(std::uint64_t durable, const std::string& why);
  bool shouldLinger();
  std::optional<std::chrono::microseconds> timeToSleep() const;
  void clientGone(std::uint32_t connection);

  unsigned turnDepth_ = 0;
  bool settleTurn_ = false;
  unsigned changingTurns_ = 0;  // whose changes are in the gathering batch
  std::optional<std::chrono::steady_clock::time_point> lingerUntil_;
};

inline Looper::Impl& theLoop() { return getLooper()->impl(); }

}  // namespace nv
