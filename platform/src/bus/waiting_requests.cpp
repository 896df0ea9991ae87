#include "platform/src/bus/waiting_requests.h"

#include <iterator>
#include <utility>

#include "platform/src/loop/looper_impl.h"

namespace nv {

namespace {
constexpr unsigned kInterval = 20;           // milliseconds between two tries
constexpr std::uint64_t kPatience = 10'000;  // milliseconds
}  // namespace

void WaitingRequests::add(std::uint32_t address, Outgoing request) {
  const bool awaited = requests_.awaits(request.tag);
  requests_.delayed(request.tag, "the service takes no more connections for now");
  byAddress_[address].push_back({std::move(request), awaited, theLoop().now() + kPatience});
  if (!timer_.running()) timer_ = Timer(kInterval, [this] { tryAgain(); });
}

void WaitingRequests::tryAgain() {
  for (auto queue = byAddress_.begin(); queue != byAddress_.end();)
    queue = sendAll(queue->second) ? byAddress_.erase(queue) : std::next(queue);
  if (!byAddress_.empty()) timer_ = Timer(kInterval, [this] { tryAgain(); });
}

bool WaitingRequests::sendAll(Queue& queue) {
  std::erase_if(queue, [this](const Waiting& waiting) { return !isWanted(waiting); });
  while (!queue.empty() && send_(queue.front().request)) queue.pop_front();
  return queue.empty();
}

bool WaitingRequests::isWanted(const Waiting& waiting) const {
  return waiting.awaited ? requests_.awaits(waiting.request.tag) : theLoop().now() < waiting.until;
}

}  // namespace nv
