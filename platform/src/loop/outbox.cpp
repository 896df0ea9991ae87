#include "platform/src/loop/outbox.h"

#include <utility>

namespace nv {

void Outbox::endTurn(std::uint64_t after) {
  for (auto& outgoing : turn_) {
    if (after == 0)
      ready_.push_back(std::move(outgoing));
    else
      held_.push_back({after, std::move(outgoing)});
  }
  turn_.clear();
}

void Outbox::release(std::uint64_t durable, const Deliver& deliver) {
  while (!held_.empty() && held_.front().after <= durable) {
    auto outgoing = std::move(held_.front().outgoing);
    held_.pop_front();
    deliver(std::move(outgoing));
  }
  for (auto& outgoing : std::exchange(ready_, {})) deliver(std::move(outgoing));
}

std::vector<Outgoing> Outbox::takeReplies(std::uint64_t durable) {
  std::vector<Outgoing> taken;
  std::deque<Held> others;
  for (auto& held : std::exchange(held_, {})) {
    if (held.after > durable && held.outgoing.kind == Outgoing::Kind::reply)
      taken.push_back(std::move(held.outgoing));
    else
      others.push_back(std::move(held));
  }
  held_ = std::move(others);
  return taken;
}

}  // namespace nv
