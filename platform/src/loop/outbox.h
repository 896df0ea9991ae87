/// What this process says to others, held back until they may hear it.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "platform/message.h"

namespace nv {

/// One message on its way out.
struct Outgoing {
  enum class Kind { request, reply, notification, ended, undo };
  Kind kind;
  std::uint32_t connection;  ///< of what goes to a client
  std::uint32_t tag;         ///< 0: nobody waits for it
  message msg;
};

/// Gathers what one turn says, and lets it go when the changes it tells of are on disk. Messages
/// leave in the order in which they were said, but those that wait for nothing overtake those that
/// wait.
class Outbox {
 public:
  using Deliver = std::function<void(Outgoing&&)>;

  void say(Outgoing outgoing) { turn_.push_back(std::move(outgoing)); }
  /// Ends a turn: what it said may leave when change number `after` is on disk; 0: at once.
  void endTurn(std::uint64_t after);
  /// Delivers what waits for change `durable` or an earlier one, then what waits for nothing.
  void release(std::uint64_t durable, const Deliver& deliver);
  /// Takes out the replies that wait for a change later than number `durable`.
  std::vector<Outgoing> takeReplies(std::uint64_t durable);

  /// Whether something that waits for nothing has not been delivered yet.
  bool hasReady() const { return !ready_.empty(); }

 private:
  struct Held {
    std::uint64_t after;
    Outgoing outgoing;
  };
  std::vector<Outgoing> turn_, ready_;
  std::deque<Held> held_;  // ascending by `after`
};

}  // namespace nv
