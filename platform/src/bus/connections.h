/// The connections of this process: frames in, frames out, and what a peer may take.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/limits.h"
#include "platform/message.h"
#include "platform/src/bus/cut_log.h"
#include "platform/src/bus/envelope.h"
#include "platform/transport.h"

namespace nv {

/// Who handles what arrives. Called from within the loop engine's `wait`, except `connectionGone`.
class ConnectionEvents {
 public:
  virtual ~ConnectionEvents() = default;
  /// A client's request, stamped with its route and rights.
  virtual void requestArrived(message request) = 0;
  // What a service says: its connection, and the tag to which it says that it belongs.
  virtual void replyArrived(std::uint32_t connection, std::uint32_t tag, message reply) = 0;
  virtual void notificationArrived(std::uint32_t connection, std::uint32_t tag,
                                   message notification) = 0;
  virtual void subscriptionEnded(std::uint32_t connection, std::uint32_t tag) = 0;
};

/// Frames are a length (u32, little-endian, of what follows) and a flat message. A client's
/// connection carries requests in and the rest out; a connection that this process made, the other
/// way round. Whoever breaks a rule or a limit is cut, with a line on the standard output.
class Connections : public TransportEvents {
 public:
  using Rights = std::function<std::uint32_t(const Peer&)>;

  Connections(std::unique_ptr<Transport> transport, const Limits& limits, Rights rights,
              ConnectionEvents& events);

  std::string listen(std::uint32_t address, const std::string& name);
  /// The connection to a service, made when there is none.
  Transport::Connected to(std::uint32_t address);

  /// Marks a request as answered; it stays in flight until the answer is sent. False: it is not
  /// awaited (any more), or the connection is gone.
  bool claimReply(std::uint32_t connection, std::uint32_t tag);
  void send(std::uint32_t connection, Frame kind, std::uint32_t tag, message msg);
  /// What has been sent since the last call leaves.
  void flush();

  /// Counts a subscription of a connection; false when it, or its user, has all that it may have.
  bool addSubscription(std::uint32_t connection);
  void removeSubscription(std::uint32_t connection);

  /// Bytes that wait in this process before they are sent count as queued, to kSelf as well.
  void expect(std::uint32_t connection, std::size_t bytes);
  void expected(std::uint32_t connection, std::size_t bytes);
  /// Whether so much is queued that notifications should wait. The connection is then among those
  /// that `takeRelieved` returns later.
  bool congested(std::uint32_t connection);
  /// Whether the other end leaves so much unread. What still waits in this process is not its
  /// fault.
  bool isBehind(std::uint32_t connection) const;
  /// The connections that were congested and are not any more. The requests that waited for this
  /// are handled.
  std::vector<std::uint32_t> takeRelieved();
  bool hasRelieved() const;

  /// The connections that have ended since the last call: their numbers, clients' and others.
  struct Gone {
    std::vector<std::uint32_t> clients, services;
  };
  Gone takeGone();
  bool hasGone() const { return !gone_.clients.empty() || !gone_.services.empty(); }
  bool knows(std::uint32_t connection) const { return connections_.contains(connection); }

  void accepted(std::uint32_t connection, const Peer& peer) override;
  void received(std::uint32_t connection, std::span<const unsigned char> bytes) override;
  void drained(std::uint32_t connection) override;
  void closed(std::uint32_t connection) override;

 private:
  struct Connection {
    bool client;                        // made by the other end
    Peer peer;                          // of a client
    std::uint32_t rights = 0;           // of a client
    std::uint32_t address = 0;          // of a service
    std::vector<unsigned char> unread;  // the beginning of a frame; whole ones while paused
    std::unordered_map<std::uint32_t, bool> inFlight;  // by tag: whether it is answered
    std::size_t subscriptions = 0;
    std::size_t expectedBytes = 0;
    bool readingPaused = false;
  };

  struct User {
    std::size_t connections = 0;
    std::size_t subscriptions = 0;
  };

  /// Handles the whole frames at the front of `bytes`, until the connection is congested, and
  /// returns how many bytes they took.
  std::size_t takeFrames(std::uint32_t connection, std::span<const unsigned char> bytes);
  void frameArrived(std::uint32_t number, std::span<const unsigned char> bytes);
  void requestArrived(std::uint32_t number, Connection& connection, message request);
  void pauseIfCongested(std::uint32_t number);
  void resume(std::uint32_t number);
  bool isCongested(std::uint32_t number) const;
  /// `tag` 0: all that this client has asked or asks, before it is cut.
  void refuse(std::uint32_t number, std::uint32_t tag, std::string_view why);
  std::uint32_t grantedRights(const Connection& connection, const message& request) const;
  std::size_t queued(std::uint32_t number, const Connection& connection) const;
  void cut(std::uint32_t number, std::string_view why);
  void forget(std::uint32_t number);

  const Limits& limits_;
  Rights rights_;
  ConnectionEvents& events_;
  std::unordered_map<std::uint32_t, Connection> connections_;
  std::unordered_map<std::uint32_t, std::uint32_t> byAddress_;
  std::unordered_map<std::uint32_t, User> users_;  // who have connections
  std::size_t expectedBySelf_ = 0;
  std::set<std::uint32_t> congested_;
  Gone gone_;
  CutLog cutLog_;
  std::unique_ptr<Transport> transport_;  // last: it goes first, and with it all calls
};

}  // namespace nv
