/// What the bus lets others take from a service.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nv {

/// A service sets its own before it listens. Reaching a limit costs the one who reaches it, nobody
/// else.
struct Limits {
  /// Largest request, in bytes. A longer one is answered err::tooMany, and the
  /// connection is cut.
  std::size_t frameBytes = 256 * 1024;
  /// Bytes queued to a connection above which its notifications wait as one mark per changed
  /// object, and no further request is read from it.
  std::size_t queuedBytes = 64 * 1024;
  /// Bytes queued to a connection above which it is cut; also the largest answer taken from a
  /// service.
  std::size_t maxQueuedBytes = 8 * 1024 * 1024;
  /// Requests of a connection that wait for their replies; the next is answered err::tooMany.
  std::size_t requestsInFlight = 256;
  /// Subscriptions of a connection, and of all connections of one user id together; the next is
  /// answered err::tooMany.
  std::size_t subscriptions = 64;
  std::size_t subscriptionsPerUser = 256;
  /// Marks of a subscription that reads slowly; neighbouring object ids share one. One that needs
  /// more while its connection leaves more than `queuedBytes` unread is ended. A mark takes about
  /// 50 bytes.
  std::size_t marks = 1000;
  /// Longest request to subscribe, in bytes, since it is kept; a longer one is answered
  /// err::tooMany.
  std::size_t subscriptionBytes = 4096;
  /// Connections of one user id; the next is told err::tooMany and cut at once.
  std::size_t connectionsPerUser = 64;
  /// Undo records that are kept for clients to read, and how many bytes they may take together; as
  /// many may wait for the disk.
  std::size_t undoRecords = 100;
  std::size_t undoBytes = 1024 * 1024;
};

}  // namespace nv
