#include "platform/src/bus/following.h"

#include <algorithm>
#include <utility>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/keys.h"
#include "platform/src/loop/looper_impl.h"

namespace nv {

namespace {
constexpr unsigned kFirstDelay = 100;         // milliseconds
constexpr unsigned kLongestDelay = 3200;      // milliseconds
constexpr std::uint32_t kAnswerTime = 10000;  // milliseconds
// The object id under which the one object of a holder is known.
constexpr std::uint32_t kSingleObject = 0;
}  // namespace

/// A function that calls `method` while this follow lives, and keeps it alive meanwhile.
template <class Method, class... Args>
auto Following::later(Method method, Args... args) {
  return [weak = weak_from_this(), method, args...](const auto&... more) {
    const auto self = weak.lock();
    if (self && !self->stopped_) (self.get()->*method)(args..., more...);
  };
}

void Following::start() {
  delay_ = kFirstDelay;
  retry_ = Timer(0, later(&Following::subscribe));
}

void Following::stop() {
  stopped_ = true;
  retry_.stop();
  reading_.cancel();
  unsubscribe();
}

void Following::forget() {
  stopped_ = true;
  tag_ = 0;
  reading_ = {};
  retry_ = {};
}

void Following::unsubscribe() {
  if (tag_ == 0) return;
  theLoop().requests.forget(tag_);
  if (std::exchange(asked_, false)) {
    auto request = requestFor(cmd::unsubscribe);
    request.insert(key::objectId, tag_);
    theLoop().request(0, std::move(request));
  }
  tag_ = 0;
}

void Following::deliver(const message& msg) {
  if (!stopped_ && callback_) callback_(msg);
}

message Following::requestFor(unsigned command) const {
  auto request = target_;
  request.insert(key::command, command);
  return request;
}

void Following::subscribe() {
  auto& loop = theLoop();
  asked_ = true;
  tag_ = loop.requests.await(later(&Following::subscribed), kAnswerTime);
  loop.requests.listen(tag_, later(&Following::changed), later(&Following::ended));
  loop.request(tag_, requestFor(cmd::subscribe));
}

void Following::subscribed(const message& reply) {
  if (unsigned code = 0; isError(reply, &code, nullptr)) {
    asked_ = code == err::timedOut;
    return tryAgainLater();
  }
  seen_ = Allocator(0, 0xffffffff);
  pages_ = Allocator(0, 0xffffffff);
  readPage(kNoId);
}

void Following::readPage(std::uint32_t startId) {
  auto request = requestFor(cmd::getAll);
  if (startId != kNoId) request.insert(key::startId, startId);
  request.insert(key::settled, true);
  reading_ = Post(request, later(&Following::pageRead, startId), kAnswerTime);
}

void Following::pageRead(std::uint32_t startId, const message& reply) {
  if (unsigned code = 0; isError(reply, &code, nullptr)) {
    if (startId == kNoId && code == err::badCommand) return readSingle();
    // Among others: the object to go on from was removed meanwhile.
    return tryAgainLater();
  }
  for (const auto& flat : reply.get(key::objects)) {
    message object(flat);
    if (object.has(key::objectId)) passOn(object, object.get(key::objectId));
    if (stopped_) return;
  }
  const auto next = reply.get(key::startId, kNoId);
  if (next == kNoId) return initialSetRead();
  if (pages_.isAllocated(next)) return tryAgainLater();  // in a circle this would never end
  pages_.allocate(next);
  readPage(next);
}

void Following::readSingle() {
  auto request = requestFor(cmd::get);
  request.insert(key::settled, true);
  reading_ = Post(
      request,
      [this, weak = weak_from_this()](const message& reply) {
        const auto self = weak.lock();
        if (!self || stopped_) return;
        if (isError(reply)) return tryAgainLater();
        passOn(reply, kSingleObject);
        if (!stopped_) initialSetRead();
      },
      kAnswerTime);
}

void Following::initialSetRead() {
  delay_ = kFirstDelay;
  std::vector<std::uint32_t> vanished;
  for (const auto id : known_)
    if (!seen_.isAllocated(id)) vanished.push_back(id);
  for (const auto id : vanished) {
    passOn({{key::absent, 1}}, id);
    if (stopped_) return;
  }
  deliver({});
}

void Following::passOn(message object, std::uint32_t id) {
  stripEnvelope(object);
  object.insert(key::objectId, id);
  if (object.get(key::absent) != 0) {
    known_.free(id);
    seen_.free(id);
  } else {
    known_.allocate(id);
    seen_.allocate(id);
  }
  deliver(object);
}

void Following::changed(const message& notification) {
  const auto id = notification.get(key::objectId, kNoId);
  passOn(notification, id == kNoId ? kSingleObject : id);
}

void Following::ended() {
  asked_ = false;  // the other end knows
  tryAgainLater();
}

void Following::tryAgainLater() {
  reading_.cancel();
  unsubscribe();
  retry_ = Timer(delay_, later(&Following::subscribe));
  delay_ = std::min(2 * delay_, kLongestDelay);
}

}  // namespace nv
