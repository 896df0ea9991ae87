#include "platform/src/bus/connections.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <utility>

namespace nv {

namespace {
std::array<unsigned char, kFrameHeaderBytes> header(std::size_t length) {
  return {static_cast<unsigned char>(length), static_cast<unsigned char>(length >> 8),
          static_cast<unsigned char>(length >> 16), static_cast<unsigned char>(length >> 24)};
}
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
  auto& user = users_[found->second.peer.uid];
  if (found->second.subscriptions >= limits_.subscriptions ||
      user.subscriptions >= limits_.subscriptionsPerUser)
    return false;
  ++found->second.subscriptions;
  ++user.subscriptions;
  return true;
}

void Connections::removeSubscription(std::uint32_t connection) {
  const auto found = connections_.find(connection);
  if (found == connections_.end() || found->second.subscriptions == 0) return;
  --found->second.subscriptions;
  --users_.at(found->second.peer.uid).subscriptions;
}

void Connections::expect(std::uint32_t connection, std::size_t bytes) {
  if (connection == kSelf) expectedBySelf_ += bytes;
  const auto found = connections_.find(connection);
  if (found != connections_.end()) found->second.expectedBytes += bytes;
}

void Connections::expected(std::uint32_t connection, std::size_t bytes) {
  if (connection == kSelf) expectedBySelf_ -= bytes;
  const auto found = connections_.find(connection);
  if (found != connections_.end()) found->second.expectedBytes -= bytes;
}

std::size_t Connections::queued(std::uint32_t number, const Connection& connection) const {
  return transport_->queued(number) + connection.expectedBytes;
}

bool Connections::isCongested(std::uint32_t number) const {
  if (number == kSelf) return expectedBySelf_ > limits_.queuedBytes;
  const auto found = connections_.find(number);
  return found != connections_.end() && queued(number, found->second) > limits_.queuedBytes;
}

bool Connections::congested(std::uint32_t connection) {
  if (!isCongested(connection)) return false;
  congested_.insert(connection);
  return true;
}

bool Connections::isBehind(std::uint32_t connection) const {
  return connections_.contains(connection) && transport_->queued(connection) > limits_.queuedBytes;
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
  if (++users_[peer.uid].connections <= limits_.connectionsPerUser) return;
  constexpr auto kWhy = "this user has too many connections";
  refuse(connection, 0, kWhy);
  cut(connection, kWhy);
}

void Connections::drained(std::uint32_t) {}  // the pass that brings this asks takeRelieved

void Connections::closed(std::uint32_t connection) { forget(connection); }

void Connections::cut(std::uint32_t number, std::string_view why) {
  const auto found = connections_.find(number);
  if (found == connections_.end()) return;  // it did not take what was said to it before
  const auto& connection = found->second;
  const auto isCut = " is cut: " + std::string(why);
  if (connection.client)
    cutLog_.add(connection.peer.uid, "bus: connection " +
                                         std::to_string(number - Transport::kFirstConnection) +
                                         " of user " + std::to_string(connection.peer.uid) + isCut);
  else
    std::cout << "bus: connection to " << connection.address << isCut << std::endl;
  transport_->close(number);
  forget(number);
}

void Connections::forget(std::uint32_t number) {
  const auto connection = connections_.extract(number);
  if (!connection) return;
  if (connection.mapped().client) {
    gone_.clients.push_back(number);
    const auto user = users_.find(connection.mapped().peer.uid);
    user->second.subscriptions -= connection.mapped().subscriptions;
    if (--user->second.connections == 0) users_.erase(user);
  } else {
    gone_.services.push_back(number);
    byAddress_.erase(connection.mapped().address);
  }
}

}  // namespace nv
