/// What this process says to others, held back until they may hear it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
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
/// wait, and undo records, of which only so many wait, go before the others.
class Outbox {
 public:
  using Deliver = std::function<void(Outgoing&&)>;

  /// The oldest undo records that wait make room for new ones: the log would not keep them either.
  Outbox(std::size_t undoRecords, std::size_t undoBytes)
      : undoRecords_(undoRecords), undoBytes_(undoBytes) {}

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
  using Queue = std::deque<Held>;  // ascending by `after`

  void hold(Held held);
  static std::optional<Outgoing> takeDurable(Queue& queue, std::uint64_t durable);

  std::size_t undoRecords_, undoBytes_;
  std::vector<Outgoing> turn_, ready_;
  Queue held_;
  Queue heldUndo_;
  std::size_t heldUndoBytes_ = 0;
};

}  // namespace nv
