#include "platform/src/loop/outbox.h"

#include <utility>

namespace nv {

void Outbox::endTurn(std::uint64_t after) {
  for (auto& outgoing : turn_) {
    if (after == 0)
      ready_.push_back(std::move(outgoing));
    else
      hold({after, std::move(outgoing)});
  }
  turn_.clear();
}

void Outbox::hold(Held held) {
  if (held.outgoing.kind != Outgoing::Kind::undo) return held_.push_back(std::move(held));
  heldUndoBytes_ += held.outgoing.msg.bytes().size();
  heldUndo_.push_back(std::move(held));
  while (heldUndo_.size() > undoRecords_ || (heldUndoBytes_ > undoBytes_ && heldUndo_.size() > 1)) {
    heldUndoBytes_ -= heldUndo_.front().outgoing.msg.bytes().size();
    heldUndo_.pop_front();
  }
}

std::optional<Outgoing> Outbox::takeDurable(Queue& queue, std::uint64_t durable) {
  if (queue.empty() || queue.front().after > durable) return std::nullopt;
  auto outgoing = std::move(queue.front().outgoing);
  queue.pop_front();
  return outgoing;
}

void Outbox::release(std::uint64_t durable, const Deliver& deliver) {
  while (auto undo = takeDurable(heldUndo_, durable)) {
    heldUndoBytes_ -= undo->msg.bytes().size();
    deliver(std::move(*undo));
  }
  while (auto outgoing = takeDurable(held_, durable)) deliver(std::move(*outgoing));
  for (auto& outgoing : std::exchange(ready_, {})) deliver(std::move(outgoing));
}

std::vector<Outgoing> Outbox::takeReplies(std::uint64_t durable) {
  std::vector<Outgoing> taken;
  Queue others;
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
