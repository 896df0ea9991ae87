/// The frames that arrive on a connection: cut from the stream, checked, stamped and handed on.

#include <string>
#include <utility>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/src/bus/connections.h"

namespace nv {

namespace {
// Pages, undo records and the like nest what a request brought deeper, and must still be readable.
constexpr unsigned kRequestDepth = message::kMaxDepth - 8;

std::size_t readLength(std::span<const unsigned char> header) {
  return header[0] | std::size_t{header[1]} << 8 | std::size_t{header[2]} << 16 |
         std::size_t{header[3]} << 24;
}

bool isSystem(std::uint32_t rights) { return static_cast<std::int32_t>(rights) < 0; }
}  // namespace

void Connections::received(std::uint32_t connection, std::span<const unsigned char> bytes) {
  const auto found = connections_.find(connection);
  if (found == connections_.end()) return;
  // What is unread stays where it is: copied with each arrival, a frame that comes byte by byte
  // would cost its length squared.
  auto unread = std::exchange(found->second.unread, {});
  if (unread.empty()) {
    const auto rest = bytes.subspan(takeFrames(connection, bytes));
    unread.assign(rest.begin(), rest.end());
  } else {
    unread.insert(unread.end(), bytes.begin(), bytes.end());
    const auto taken = takeFrames(connection, unread);
    unread.erase(unread.begin(), unread.begin() + static_cast<std::ptrdiff_t>(taken));
  }
  const auto left = connections_.find(connection);  // a frame may have cut it
  if (left != connections_.end()) left->second.unread = std::move(unread);
}

std::size_t Connections::takeFrames(std::uint32_t connection,
                                    std::span<const unsigned char> bytes) {
  std::size_t taken = 0;
  while (bytes.size() - taken >= kFrameHeaderBytes) {
    const auto found = connections_.find(connection);
    if (found == connections_.end() || found->second.readingPaused) break;
    const auto rest = bytes.subspan(taken);
    const auto length = readLength(rest);
    // An answer is longer than the request that made its object, and a page than its longest
    // object.
    if (length > (found->second.client ? limits_.frameBytes : limits_.maxQueuedBytes)) {
      const auto why = "a frame of " + std::to_string(length) + " bytes is over the limit";
      if (found->second.client) refuse(connection, 0, why);
      cut(connection, why);
      break;
    }
    if (rest.size() - kFrameHeaderBytes < length) break;
    taken += kFrameHeaderBytes + length;
    frameArrived(connection, rest.subspan(kFrameHeaderBytes, length));
    pauseIfCongested(connection);
  }
  return taken;
}

void Connections::frameArrived(std::uint32_t number, std::span<const unsigned char> bytes) {
  auto& connection = connections_.at(number);
  const auto depth = connection.client ? kRequestDepth : message::kMaxDepth;
  auto msg = message::parse(bytes, depth);
  if (!msg)
    return cut(number, "a frame is malformed: " + std::string(message::check(bytes, depth)));
  const auto kind = frameKind(*msg);
  if (connection.client) {
    if (kind != Frame::request) return cut(number, "a client sent something that is no request");
    return requestArrived(number, connection, std::move(*msg));
  }
  const auto tag = msg->get(key::tag);
  stripFrame(*msg);
  if (kind == Frame::reply)
    events_.replyArrived(number, tag, std::move(*msg));
  else if (kind == Frame::notification)
    events_.notificationArrived(number, tag, std::move(*msg));
  else if (kind == Frame::ended)
    events_.subscriptionEnded(number, tag);
  else
    cut(number, "a service sent a request");
}

void Connections::requestArrived(std::uint32_t number, Connection& connection, message request) {
  const bool hasAnswer = request.get(key::command) != cmd::routeGone;
  if (!hasAnswer) request.remove(key::tag);
  const auto tag = request.get(key::tag);
  // What is not awaited is not counted: a client could queue changes, or ask, without end.
  if (hasAnswer && tag == 0) return cut(number, "a request carries no tag");
  request.insert_vector(key::requester, number);
  request.insert(key::rights, grantedRights(connection, request));
  if (tag != 0) {
    if (connection.inFlight.size() == limits_.requestsInFlight &&
        !connection.inFlight.contains(tag))
      return refuse(number, tag, "too many requests wait for an answer");
    if (!connection.inFlight.emplace(tag, false).second)
      return cut(number, "two requests carry one tag");
  }
  events_.requestArrived(std::move(request));
}

void Connections::refuse(std::uint32_t number, std::uint32_t tag, std::string_view why) {
  send(number, Frame::reply, tag, errorMsg(err::tooMany, why));
}

std::uint32_t Connections::grantedRights(const Connection& connection,
                                         const message& request) const {
  const auto asked = request.get(key::rights, kSystemRights);
  if (isSystem(asked)) return connection.rights;
  return isSystem(connection.rights) ? asked : asked & connection.rights;
}

}  // namespace nv
