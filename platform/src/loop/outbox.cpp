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

std::vector<Outgoing> Outbox::takeHeld() {
  std::vector<Outgoing> taken;
  for (auto& held : std::exchange(held_, {})) taken.push_back(std::move(held.outgoing));
  return taken;
}

}  // namespace nv
