/// What handlers and services say, and how it leaves the process.

#include <utility>

#include "platform/errors.h"
#include "platform/src/bus/envelope.h"
#include "platform/src/loop/looper_impl.h"

namespace nv {

void Looper::Impl::say(Outgoing outgoing) {
  using Kind = Outgoing::Kind;
  if (outgoing.kind != Kind::request && outgoing.kind != Kind::undo)
    connections.expect(outgoing.connection, outgoing.msg.bytes().size());
  if (turnDepth_ == 0) settleTurn();  // said outside of any turn, it waits for all that was stored
  const Turn turn(*this);
  outbox.say(std::move(outgoing));
}

void Looper::Impl::request(std::uint32_t tag, message msg) {
  say({Outgoing::Kind::request, 0, tag, std::move(msg)});
}

void Looper::Impl::reply(const message& request, message msg) {
  // The requester that the bus has stamped counts, whatever an object put into the answer.
  const auto to = requesterOf(request);
  const auto tag = request.get(key::tag);
  if (to == 0 || tag == 0) return;
  msg.insert_vector(key::route, to);
  if (to != kSelf && !connections.claimReply(to, tag)) return;
  if (request.get(key::settled)) settleTurn();
  say({Outgoing::Kind::reply, to, tag, std::move(msg)});
}

void Looper::Impl::notify(std::uint32_t connection, std::uint32_t tag, message msg) {
  settleTurn();
  say({Outgoing::Kind::notification, connection, tag, std::move(msg)});
}

void Looper::Impl::endSubscription(std::uint32_t connection, std::uint32_t tag) {
  settleTurn();
  say({Outgoing::Kind::ended, connection, tag, {}});
}

void Looper::Impl::publishUndo(message record) {
  say({Outgoing::Kind::undo, 0, 0, std::move(record)});
}

void Looper::Impl::deliverOutgoing(Outgoing&& outgoing) {
  using Kind = Outgoing::Kind;
  if (outgoing.kind == Kind::undo) return undo.add(std::move(outgoing.msg));
  if (outgoing.kind == Kind::request) return deliverRequest(std::move(outgoing));

  connections.expected(outgoing.connection, outgoing.msg.bytes().size());
  if (outgoing.connection == kSelf) return deliverToSelf(std::move(outgoing));
  const auto frame = outgoing.kind == Kind::reply          ? Frame::reply
                     : outgoing.kind == Kind::notification ? Frame::notification
                                                           : Frame::ended;
  connections.send(outgoing.connection, frame, outgoing.tag, std::move(outgoing.msg));
}

void Looper::Impl::deliverToSelf(Outgoing&& outgoing) {
  localWork.push_back(
      [this, kind = outgoing.kind, tag = outgoing.tag, msg = std::move(outgoing.msg)] {
        switch (kind) {
          case Outgoing::Kind::reply: return requests.reply(kSelf, tag, msg);
          case Outgoing::Kind::notification: return requests.notify(kSelf, tag, msg);
          default: return requests.ended(kSelf, tag);
        }
      });
}

void Looper::Impl::deliverRequest(Outgoing&& outgoing) {
  if (outgoing.tag == 0)
    outgoing.tag = requests.freshTag();
  else if (!requests.awaits(outgoing.tag))
    return;  // was cancelled, or timed out, while it was held back
  auto& msg = outgoing.msg;
  const auto route = msg.get(key::route);
  if (isLocal(route)) {
    requests.sentOver(outgoing.tag, kSelf);
    msg.insert_vector(key::requester, kSelf);
    msg.insert(key::tag, outgoing.tag);
    localWork.push_back([this, msg = std::move(msg)] { dispatch(msg); });
    return;
  }
  const auto service = route.empty() ? 0 : route[0];
  if (waitingRequests.holds(service) || !sendToService(outgoing))
    waitingRequests.add(service, std::move(outgoing));
}

/// Sends a request to another process, or answers it when that cannot be. False: the service takes
/// no connection for the moment.
bool Looper::Impl::sendToService(Outgoing& outgoing) {
  const auto route = outgoing.msg.get(key::route);
  auto connected = connections.to(route.empty() ? 0 : route[0]);
  if (connected.connection != 0) {
    requests.sentOver(outgoing.tag, connected.connection);
    connections.send(connected.connection, Frame::request, outgoing.tag, std::move(outgoing.msg));
  } else if (connected.busy) {
    return false;
  } else {
    localWork.push_back([this, tag = outgoing.tag, why = std::move(connected.error)] {
      requests.answer(tag, errorMsg(err::noRoute, why));
    });
  }
  return true;
}

}  // namespace nv
