/// The event loop of a service: it brings commands to handlers and takes what they say to the
/// others.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/export.h"
#include "platform/limits.h"
#include "platform/loop_engine.h"
#include "platform/message.h"
#include "platform/store_engine.h"
#include "platform/transport.h"

namespace nv {

class Handler;

/// What a process is made of below its handlers. A null member: the process does without.
struct Platform {
  std::unique_ptr<LoopEngine> loop = {};
  std::unique_ptr<Transport> transport = {};
  std::unique_ptr<StoreEngine> stores = {};
  Limits limits = {};
  /// The rights of a user who connects. A client may ask for fewer in key::rights, never for more.
  /// Empty: root and the user of this process are the system, everybody else has none.
  std::function<std::uint32_t(const Peer&)> rights = {};
  /// Ends the process when its store has failed. Empty: std::_Exit.
  std::function<void(int status)> exit = {};
};

/// One pass: events -> handlers run -> hooks before sleep -> changes handed to the store ->
/// notifications
/// -> what waits for nothing is sent -> sleep.
///
/// Each command, timer, answer and hook is a turn. What a turn sends (replies, undo records,
/// requests) is held back as a whole when the turn changed the store, until that change is on disk;
/// notifications wait for all changes made so far. When a change cannot be written, the replies
/// that wait for it become err::notStored replies and the process ends with status `kNotStored`, so
/// that it starts again from what is on disk. While the disk takes no changes (it is full), those
/// that a service makes all the same, by itself or for commands of its own, gather and are written
/// later; replies that would wait for them become err::notStored replies at once, notifications and
/// undo records wait. It ends so too, without another pass, when a record cannot be read: to a
/// service it would look as if it were absent.
class CONFKIT_API Looper {
 public:
  /// Exit status of a process whose store failed.
  static constexpr int kNotStored = 74;

  Looper();
  ~Looper();

  /// Puts the process together, in place of what was there. Called before anything else by
  /// `Service` and by the test kit. Handlers, follows and posts of before are forgotten.
  void assemble(Platform platform);

  /// Gives a process that was put together without stores its store engine. Called before the first
  /// pass.
  void useStores(std::unique_ptr<StoreEngine> stores);

  /// Takes `address` on the bus; empty, or a line that says why not. `name` is a word by which
  /// people find the service.
  std::string listen(std::uint32_t address, const std::string& name);

  /// Registers `handler` under `id`, in place of one that is there. Not owned; it unregisters
  /// itself when it is destroyed. The handler under the process's own address answers route
  /// [address], the others [address, id].
  void addHandler(std::uint32_t id, Handler* handler);
  /// Its subscriptions end. One that is not registered is left as it is.
  void removeHandler(Handler* handler);

  /// Sends a request to its key::route without awaiting an answer.
  void send(message request);

  /// Runs passes until `stop`; then waits for the store and returns stop's status. A process
  /// without a loop engine cannot wait: it gets a line on the standard error stream and status 1.
  int run();
  /// Can be called from a signal handler.
  void stop(int status = 0);
  /// One pass; waits for events only when `mayWait`.
  void runOnce(bool mayWait);
  /// Whether a pass would find something to do at the present time.
  bool hasWork() const;
  /// When the next timer is due, on the loop engine's clock.
  std::optional<std::uint64_t> nextTimer() const;

  /// Hands `cmd` to `handler` as the bus does: checks whether it is allowed and whether the store
  /// can take changes, then calls `handleCmd`, in a turn of its own. key::requester and key::rights
  /// as given.
  void deliver(Handler& handler, const message& cmd);

  struct Impl;
  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

/// The loop of this process. Never destroyed.
CONFKIT_API Looper* getLooper();

}  // namespace nv
