#include "platform/src/bus/subscribers.h"

#include <algorithm>
#include <utility>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/keys.h"
#include "platform/src/loop/looper_impl.h"

namespace nv {

void Subscriber::mark(std::uint32_t id, bool removed) {
  late.allocate(id);
  if (removed)
    lateRemoved.allocate(id);
  else
    lateRemoved.free(id);
}

message Handler::Subscribers::add(const message& request) {
  const auto connection = requesterOf(request);
  const auto tag = request.get(key::tag);
  if (tag == 0) return errorMsg(err::badCommand, "a subscription needs a tag");
  if (request.bytes().size() > theLoop().limits.subscriptionBytes)
    return errorMsg(err::tooMany, "the subscription is too long");
  if (!theLoop().connections.addSubscription(connection))
    return errorMsg(err::tooMany, "too many subscriptions");

  const auto self = shared_from_this();
  bool plain = true;
  auto* const cookie = owner_->subscribe(request, plain);
  const auto flags = owner_ ? owner_->subscriberFlags(request, cookie) & ~kStoreBit : 0;
  if (!owner_) {
    theLoop().connections.removeSubscription(connection);
    return errorMsg(err::noRoute, "the handler is gone");
  }
  const auto serial = ++lastSerial_;
  subscribers_.emplace(serial, Subscriber{request, connection, tag, flags, cookie, plain});
  if (cookie) byCookie_[cookie] = serial;
  return {};
}

message Handler::Subscribers::end(const message& request) {
  const auto connection = requesterOf(request);
  const auto tag = request.get(key::objectId, kNoId);
  for (const auto& [serial, subscriber] : subscribers_) {
    if (subscriber.connection != connection || subscriber.tag != tag) continue;
    forget(serial);
    return {};
  }
  return errorMsg(err::noSuchObject, "");
}

void Handler::Subscribers::dropConnection(std::uint32_t connection) {
  const auto self = shared_from_this();
  std::vector<Serial> gone;
  for (const auto& [serial, subscriber] : subscribers_)
    if (subscriber.connection == connection) gone.push_back(serial);
  for (const auto serial : gone) forget(serial);
}

void Handler::Subscribers::endAll() {
  const auto self = shared_from_this();
  marks_.clear();
  markAt_.clear();
  byCookie_.clear();
  const auto all = std::exchange(subscribers_, {});
  for (const auto& [serial, subscriber] : all) {
    theLoop().connections.removeSubscription(subscriber.connection);
    theLoop().endSubscription(subscriber.connection, subscriber.tag);
  }
  for (const auto& [serial, subscriber] : all)
    if (owner_) owner_->unsubscribe(subscriber.request, subscriber.cookie);
}

void Handler::Subscribers::forget(Serial serial) {
  const auto gone = subscribers_.extract(serial);
  if (!gone) return;
  const auto& subscriber = gone.mapped();
  theLoop().connections.removeSubscription(subscriber.connection);
  if (const auto found = byCookie_.find(subscriber.cookie);
      found != byCookie_.end() && found->second == serial)
    byCookie_.erase(found);
  if (owner_) owner_->unsubscribe(subscriber.request, subscriber.cookie);
}

void Handler::Subscribers::mark(std::uint32_t id, bool removed, void* cookie,
                                const message& extra) {
  auto to = kAllPlain;
  if (cookie) {
    const auto found = byCookie_.find(cookie);
    if (found == byCookie_.end()) return;
    to = found->second;
  }
  if (subscribers_.empty()) return;
  const auto [at, added] = markAt_.try_emplace({id, to}, marks_.size());
  if (added) {
    marks_.push_back({id, removed, to, extra});
  } else {
    auto& mark = marks_[at->second];
    mark.removed = removed;
    mark.extra.merge(extra);
  }
}

void Handler::Subscribers::flush() {
  const auto self = shared_from_this();
  const auto marks = std::exchange(marks_, {});
  markAt_.clear();
  Views views;
  for (std::size_t i = 0; i < marks.size() && owner_; ++i) {
    // Marks of one object for several subscribers stand together and share what is fetched.
    if (i > 0 && !marks[i].sameObject(marks[i - 1])) views.clear();
    fetch(marks[i], views);
    tell(marks[i], views);
  }
}

/// First the object is fetched for all who are to hear of it, then it is sent: no service code runs
/// while the subscribers are walked.
void Handler::Subscribers::tell(const Mark& mark, const Views& views) {
  std::vector<Serial> stalled, tooLate;
  const auto tellOne = [&](Serial serial, Subscriber& subscriber) {
    const auto view = views.find(subscriber.flags);
    if (view == views.end())
      return;  // came while the object was fetched, and gets it with the others
    if (subscriber.stalled || theLoop().connections.congested(subscriber.connection)) {
      if (!subscriber.stalled) stalled.push_back(serial);
      subscriber.mark(mark.id, mark.removed);
      if (subscriber.marks() > theLoop().limits.marks &&
          theLoop().connections.isBehind(subscriber.connection))
        tooLate.push_back(serial);
      return;
    }
    theLoop().notify(subscriber.connection, subscriber.tag, view->second);
  };

  if (mark.to != kAllPlain) {
    if (const auto one = subscribers_.find(mark.to); one != subscribers_.end())
      tellOne(one->first, one->second);
  } else {
    for (auto& [serial, subscriber] : subscribers_)
      if (subscriber.plain) tellOne(serial, subscriber);
  }
  for (const auto serial : stalled) stall(serial);
  for (const auto serial : tooLate) giveUp(serial);
}

void Handler::Subscribers::fetch(const Mark& mark, Views& views) {
  std::vector<std::uint32_t> wanted;
  if (mark.to != kAllPlain) {
    if (const auto one = subscribers_.find(mark.to); one != subscribers_.end())
      wanted.push_back(one->second.flags);
  } else {
    for (const auto& [serial, subscriber] : subscribers_)
      if (subscriber.plain && !std::count(wanted.begin(), wanted.end(), subscriber.flags))
        wanted.push_back(subscriber.flags);
  }
  for (const auto flags : wanted)
    if (!views.contains(flags)) views.emplace(flags, view(mark, flags));
}

message Handler::Subscribers::view(const Mark& mark, std::uint32_t flags) {
  if (!owner_) return {};
  auto msg = owner_->getObject(mark.id, flags);
  msg.merge(mark.extra);
  if (!msg.has(key::objectId)) msg.insert(key::objectId, mark.id);
  if (mark.removed) msg.insert(key::absent, 1);
  return msg;
}

void Handler::Subscribers::stall(Serial serial) {
  const auto found = subscribers_.find(serial);
  if (found == subscribers_.end()) return;
  found->second.stalled = true;
  if (owner_) owner_->subscriberStalled(found->second.cookie);
}

void Handler::Subscribers::giveUp(Serial serial) {
  const auto found = subscribers_.find(serial);
  if (found == subscribers_.end()) return;
  theLoop().endSubscription(found->second.connection, found->second.tag);
  forget(serial);
}

Handler::Subscribers::Mark Handler::Subscribers::takeLate(Serial serial, Subscriber& subscriber) {
  const auto id = *subscriber.late.begin();
  const bool removed = subscriber.lateRemoved.isAllocated(id);
  subscriber.late.free(id);
  subscriber.lateRemoved.free(id);
  return {id, removed, serial, {}};
}

void Handler::Subscribers::flushLate(std::uint32_t connection) {
  const auto self = shared_from_this();
  std::vector<Serial> waiting;
  for (const auto& [serial, subscriber] : subscribers_)
    if (subscriber.connection == connection && subscriber.stalled) waiting.push_back(serial);

  for (const auto serial : waiting) {
    for (auto found = subscribers_.find(serial); found != subscribers_.end();
         found = subscribers_.find(serial)) {
      auto& subscriber = found->second;
      if (theLoop().connections.congested(connection)) return;
      if (subscriber.late.used() == 0) {
        subscriber.stalled = false;
        if (owner_) owner_->subscriberResumed(subscriber.cookie);
        break;
      }
      auto msg = view(takeLate(serial, subscriber), subscriber.flags);
      if (const auto still = subscribers_.find(serial); still != subscribers_.end())
        theLoop().notify(still->second.connection, still->second.tag, std::move(msg));
    }
  }
}

}  // namespace nv
