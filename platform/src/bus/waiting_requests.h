/// Requests to services that take no more connections for the moment.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>

#include "platform/src/bus/requests.h"
#include "platform/src/loop/outbox.h"
#include "platform/timer.h"

namespace nv {

/// Tries them again now and then, in their order, until they are sent or nobody awaits their
/// answers any more. One that nobody awaits from the beginning is tried for ten seconds.
class WaitingRequests {
 public:
  /// Sends a request, or answers it when that cannot be; false: its service is still busy.
  using Send = std::function<bool(Outgoing&)>;

  WaitingRequests(Requests& requests, Send send) : requests_(requests), send_(std::move(send)) {}

  /// Whether requests to `address` wait. Those that come later must wait behind them.
  bool holds(std::uint32_t address) const { return byAddress_.contains(address); }
  void add(std::uint32_t address, Outgoing request);

 private:
  struct Waiting {
    Outgoing request;
    bool awaited;
    std::uint64_t until;  // for one that is not awaited, on the loop's clock
  };
  using Queue = std::deque<Waiting>;

  void tryAgain();
  /// Whether nothing is left.
  bool sendAll(Queue& queue);
  bool isWanted(const Waiting& waiting) const;

  Requests& requests_;
  Send send_;
  std::map<std::uint32_t, Queue> byAddress_;
  Timer timer_;
};

}  // namespace nv
