#include "platform/src/bus/connections.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <utility>

#include "platform/commands.h"
#include "platform/errors.h"

namespace nv {

namespace {
constexpr std::size_t kHeaderBytes = 4;
// Pages, undo records and the like nest what a request brought deeper, and must still be readable.
constexpr unsigned kRequestDepth = message::kMaxDepth - 8;

std::size_t readLength(std::span<const unsigned char> header) {
  return header[0] | std::size_t{header[1]} << 8 | std::size_t{header[2]} << 16 |
         std::size_t{header[3]} << 24;
}

std::array<unsigned char, kHeaderBytes> header(std::size_t length) {
  return {static_cast<unsigned char>(length), static_cast<unsigned char>(length >> 8),
          static_cast<unsigned char>(length >> 16), static_cast<unsigned char>(length >> 24)};
}

bool isSystem(std::uint32_t rights) { return static_cast<std::int32_t>(rights) < 0; }
}  // namespace

Connections::Connections(std::unique_ptr<Transport> transport, const Limits& limits, Rights rights,
                         ConnectionEvents& events)
    : limits_(limits),
      rights_(std::move(rights)),
      events_(events),
      transport_(std::move(transport)) {
  if (transport_) transport_->start(*this);
}

std::string Connections::listen(std::uint32_t address, const std::string& name) {
  return transport_ ? transport_->listen(address, name) : "there is no bus";
}

Transport::Connected Connections::to(std::uint32_t address) {
  const auto known = byAddress_.find(address);
  if (known != byAddress_.end()) return {.connection = known->second};
  if (!transport_) return {.error = "there is no bus"};
  auto connected = transport_->connect(address);
  const auto number = connected.connection;
  if (number == 0) return connected;
  Connection connection{};
  connection.client = false;
  connection.address = address;
  connections_.emplace(number, std::move(connection));
  byAddress_.emplace(address, number);
  return connected;
}

bool Connections::claimReply(std::uint32_t connection, std::uint32_t tag) {
  const auto found = connections_.find(connection);
  if (found == connections_.end()) return false;
  const auto request = found->second.inFlight.find(tag);
  return request != found->second.inFlight.end() && !std::exchange(request->second, true);
}

void Connections::send(std::uint32_t connection, Frame kind, std::uint32_t tag, message msg) {
  const auto found = connections_.find(connection);
  if (found == connections_.end()) return;
  if (kind == Frame::reply) found->second.inFlight.erase(tag);
  if (kind == Frame::request)
    msg.remove(key::frameKind);
  else
    msg.insert(key::frameKind, static_cast<std::uint32_t>(kind));
  msg.insert(key::tag, tag);

  const auto bytes = msg.bytes();
  if (queued(connection, found->second) + bytes.size() > limits_.maxQueuedBytes)
    return cut(connection, "it does not read what is sent to it");
  transport_->send(connection, header(bytes.size()));
  transport_->send(connection, bytes);
}

void Connections::flush() {
  if (transport_) transport_->flush();
}

bool Connections::addSubscription(std::uint32_t connection) {
  const auto found = connections_.find(connection);
  if (found == connections_.end()) return connection == kSelf;
  if (found->second.subscriptions == limits_.subscriptions) return false;
  ++found->second.subscriptions;
  return true;
}

void Connections::removeSubscription(std::uint32_t connection) {
  const auto found = connections_.find(connection);
  if (found != connections_.end() && found->second.subscriptions > 0) --found->second.subscriptions;
}

void Connections::expect(std::uint32_t connection, std::size_t bytes) {
  const auto found = connections_.find(connection);
  if (found != connections_.end()) found->second.expectedBytes += bytes;
}

void Connections::expected(std::uint32_t connection, std::size_t bytes) {
  const auto found = connections_.find(connection);
  if (found != connections_.end()) found->second.expectedBytes -= bytes;
}

std::size_t Connections::queued(std::uint32_t number, const Connection& connection) const {
  return transport_->queued(number) + connection.expectedBytes;
}

bool Connections::isCongested(std::uint32_t number) const {
  const auto found = connections_.find(number);
  return found != connections_.end() && queued(number, found->second) > limits_.queuedBytes;
}

bool Connections::congested(std::uint32_t connection) {
  if (!isCongested(connection)) return false;
  congested_.insert(connection);
  return true;
}

bool Connections::hasRelieved() const {
  return std::any_of(congested_.begin(), congested_.end(),
                     [this](std::uint32_t number) { return !isCongested(number); });
}

std::vector<std::uint32_t> Connections::takeRelieved() {
  std::vector<std::uint32_t> relieved;
  for (const auto number : congested_)
    if (!isCongested(number)) relieved.push_back(number);
  for (const auto number : relieved) congested_.erase(number);
  for (const auto number : relieved) resume(number);
  return relieved;
}

void Connections::pauseIfCongested(std::uint32_t number) {
  const auto found = connections_.find(number);
  // A service's answers are always read: two that wait for each other's reading would wait for
  // ever.
  if (found == connections_.end() || !found->second.client || found->second.readingPaused) return;
  if (!congested(number)) return;
  found->second.readingPaused = true;
  transport_->pauseReading(number, true);
}

void Connections::resume(std::uint32_t number) {
  const auto found = connections_.find(number);
  if (found == connections_.end() || !std::exchange(found->second.readingPaused, false)) return;
  received(number, {});
  const auto still = connections_.find(number);
  if (still != connections_.end() && !still->second.readingPaused)
    transport_->pauseReading(number, false);
}

Connections::Gone Connections::takeGone() { return std::exchange(gone_, {}); }

void Connections::accepted(std::uint32_t connection, const Peer& peer) {
  Connection client{};
  client.client = true;
  client.peer = peer;
  client.rights = rights_(peer);
  connections_.emplace(connection, std::move(client));
  if (++perUser_[peer.uid] > limits_.connectionsPerUser)
    cut(connection, "this user has too many connections");
}

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
  while (bytes.size() - taken >= kHeaderBytes) {
    const auto found = connections_.find(connection);
    if (found == connections_.end() || found->second.readingPaused) break;
    const auto rest = bytes.subspan(taken);
    const auto length = readLength(rest);
    // An answer is longer than the request that made its object, and a page than its longest
    // object.
    if (length > (found->second.client ? limits_.frameBytes : limits_.maxQueuedBytes)) {
      cut(connection, "a frame of " + std::to_string(length) + " bytes is over the limit");
      break;
    }
    if (rest.size() - kHeaderBytes < length) break;
    taken += kHeaderBytes + length;
    frameArrived(connection, rest.subspan(kHeaderBytes, length));
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
    events_.replyArrived(tag, std::move(*msg));
  else if (kind == Frame::notification)
    events_.notificationArrived(tag, std::move(*msg));
  else if (kind == Frame::ended)
    events_.subscriptionEnded(tag);
  else
    cut(number, "a service sent a request");
}

void Connections::requestArrived(std::uint32_t number, Connection& connection, message request) {
  const auto code = request.get(key::command);
  if (code == cmd::routeGone) request.remove(key::tag);  // has no answer
  const auto tag = request.get(key::tag);
  // What is not awaited is not counted: a client could queue changes without end.
  if (tag == 0 && cmd::isChange(code)) return cut(number, "a change carries no tag");
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

void Connections::drained(std::uint32_t) {}  // the pass that brings this asks takeRelieved

void Connections::closed(std::uint32_t connection) { forget(connection); }

void Connections::cut(std::uint32_t number, std::string_view why) {
  const auto& connection = connections_.at(number);
  if (connection.client)
    std::cout << "bus: connection " << number - Transport::kFirstConnection << " of user "
              << connection.peer.uid;
  else
    std::cout << "bus: connection to " << connection.address;
  std::cout << " is cut: " << why << std::endl;
  transport_->close(number);
  forget(number);
}

void Connections::forget(std::uint32_t number) {
  const auto connection = connections_.extract(number);
  if (!connection) return;
  if (connection.mapped().client) {
    gone_.clients.push_back(number);
    const auto user = perUser_.find(connection.mapped().peer.uid);
    if (user != perUser_.end() && --user->second == 0) perUser_.erase(user);
  } else {
    gone_.services.push_back(number);
    byAddress_.erase(connection.mapped().address);
  }
}

}  // namespace nv
