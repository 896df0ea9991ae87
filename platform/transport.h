/// How bytes travel between processes: a seam with Unix sockets and an in-process implementation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/export.h"

namespace nv {

/// Who is at the other end of a connection, as the kernel says.
struct Peer {
  std::uint32_t uid = 0xffffffff;
  std::uint32_t gid = 0xffffffff;
  std::int32_t pid = 0;
};

/// Told of what happens on connections, from within the loop engine's `wait`, never from a
/// Transport call.
class CONFKIT_API TransportEvents {
 public:
  virtual ~TransportEvents() = default;
  virtual void accepted(std::uint32_t connection, const Peer& peer) = 0;
  virtual void received(std::uint32_t connection, std::span<const unsigned char> bytes) = 0;
  /// All bytes queued to the connection have left.
  virtual void drained(std::uint32_t connection) = 0;
  /// The other end is gone. The connection's number stays unused for long (see Transport).
  virtual void closed(std::uint32_t connection) = 0;
};

/// Streams of bytes between processes that know one another by address. Connections have numbers
/// from `kFirstConnection` on. They begin anew after 2^30 connections, and pass over those that are
/// open: within one pass of the loop no number has two meanings.
class CONFKIT_API Transport {
 public:
  static constexpr std::uint32_t kFirstConnection = 0xc0000000;

  virtual ~Transport() = default;
  /// Called once, before anything else. `events` outlives the transport.
  virtual void start(TransportEvents& events) = 0;
  /// Takes the address and lets others connect to it; empty, or a line that says why not.
  virtual std::string listen(std::uint32_t address, const std::string& name) = 0;
  /// What came of a `connect`.
  struct Connected {
    std::uint32_t connection = 0;  ///< 0: none
    std::string error = {};        ///< a line that says why not, unless busy
    bool busy = false;             ///< who listens there may take the next try
  };
  /// A new connection to whoever listens at `address`.
  virtual Connected connect(std::uint32_t address) = 0;
  /// Queues bytes; they leave with the next `flush`, or as the other end takes them.
  virtual void send(std::uint32_t connection, std::span<const unsigned char> bytes) = 0;
  virtual void flush() = 0;
  /// How many bytes are queued to the connection and have not left.
  virtual std::size_t queued(std::uint32_t connection) const = 0;
  /// Stops or restarts reading from a connection.
  virtual void pauseReading(std::uint32_t connection, bool pause) = 0;
  /// Sends what it can without waiting and ends the connection. No `closed` follows.
  virtual void close(std::uint32_t connection) = 0;
};

}  // namespace nv
