#include "getall/getall_state.h"

#include <utility>

#include "getall/getall_impl.h"
#include "getall/state_index.h"
#include "platform/keys.h"

namespace key = nv::key;
using nv::message;

namespace {
/// How long a request waits, in milliseconds: for more to come after the first record, and at all.
constexpr unsigned kGatherTime = 10;
constexpr unsigned kLongestWait = 100;
}  // namespace

// What the service sees.

GetallState::GetallState() : impl(std::exchange(Impl::backdoorCtorArg, nullptr)) {
  if (impl != nullptr) impl->state = this;
}

GetallState::~GetallState() { delete impl; }

void GetallState::more() {}
void GetallState::beforeReply(message&) {}

void GetallState::add(nv::flat_message record) {
  if (impl != nullptr) impl->add(std::move(record));
}

void GetallState::done() {
  if (impl != nullptr) impl->finish();
}

bool GetallState::full() const { return impl == nullptr || impl->isFull(); }

// The bookkeeping.

GetallState::Impl* GetallState::Impl::backdoorCtorArg = nullptr;

GetallState::Impl::Impl(StatefulGetall* maker, std::vector<std::uint32_t> requester,
                        std::uint32_t id, const message& first)
    : owner(maker),
      route(std::move(requester)),
      stateId(id),
      request(first),
      index_(maker->impl->watch()) {
  maker->impl->insert(*this);
}

GetallState::Impl::~Impl() { leave(); }

void GetallState::Impl::leave() {
  timer.stop();
  if (std::exchange(isListed_, false)) index_.get()->remove(*this);
}

void GetallState::Impl::noteIdle() {
  if (isListed_) index_.get()->noteIdle(*this);
}

bool GetallState::Impl::isFull() const {
  const auto limit = request.get(key::maxPerReply);
  return (limit != 0 && records.size() > limit) || bytes > kMaxWeight;
}

void GetallState::Impl::add(nv::flat_message record) {
  if (waiting && records.empty()) answerIn(kGatherTime);
  bytes += static_cast<std::uint32_t>(record.size()) + kRecordWeight;
  records.push_back(std::move(record));
  noteIdle();
  if (waiting && isFull()) flush();
}

void GetallState::Impl::finish() {
  if (isDone) return;
  isDone = true;
  noteIdle();
  flush();
}

void GetallState::Impl::answerIn(unsigned milliseconds) {
  timer = nv::Timer(milliseconds, [this] { flush(); });
}

void GetallState::Impl::applyRequest(const message& next) {
  const auto life = watch();
  while (!life.gone() && waiting) flush();
  if (life.gone()) return;
  request = next;
  waiting = true;
  noteIdle();
  if (isDone || isFull()) flush();
  if (life.gone() || !waiting) return;
  state->more();
  if (!life.gone() && waiting) answerIn(kLongestWait);
}

// The reply may bring the next request, or the end of the state, before replyMessage returns: it is
// sent last.
void GetallState::Impl::flush() {
  if (!waiting) return;
  message reply;
  reply.insert(key::objects, takeRecords(reply.max_length() + kReplyWeight));
  if (!isDone || !records.empty()) reply.insert(key::startId, stateId);
  waiting = false;
  timer.stop();
  noteIdle();

  const auto life = watch();
  const message answered = request;
  state->beforeReply(reply);
  if (life.gone()) return;
  if (!waiting) request.clear();
  if (index_.gone()) return;
  if (auto* const handler = owner->handler()) handler->replyMessage(answered, std::move(reply));
}

/// The records that fit into one reply. One that is too long for any goes alone.
std::vector<nv::flat_message> GetallState::Impl::takeRecords(std::size_t baseWeight) {
  const auto limit = request.get(key::maxPerReply);
  std::vector<nv::flat_message> taken;
  auto weight = baseWeight;
  while (!records.empty() && (limit == 0 || taken.size() < limit)) {
    const auto own = static_cast<std::uint32_t>(records.front().size()) + kRecordWeight;
    weight += own;
    if (weight > kMaxWeight && !taken.empty()) break;
    bytes -= own;
    taken.push_back(std::move(records.front()));
    records.pop_front();
  }
  return taken;
}
