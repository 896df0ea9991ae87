/// A process in a test: virtual time, stores in memory, a bus without sockets, and a record of all
/// calls.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/handler.h"
#include "platform/looper.h"
#include "testing/memory_engine.h"
#include "testing/recorder.h"

namespace nv::testkit {

/// Who sends a command that a test hands to a handler.
struct Requester {
  std::vector<std::uint32_t> route{0xcfff0000};
  /// Empty: the field is absent, which is the system.
  std::optional<std::uint32_t> rights{};
};
/// A user with all rights that are not the system's.
inline Requester user() { return {{0xcfff0001}, 0x7fffffff}; }

class VirtualLoop;
class InProcessTransport;

/// The other end of a connection to the process under test: a client that may be as rude as it
/// likes.
class BusPeer {
 public:
  /// A frame that holds `msg`, or any bytes at all.
  void send(const message& msg);
  void sendBytes(const std::vector<unsigned char>& bytes);
  /// The messages that have arrived, oldest first; they are taken.
  std::vector<message> received();
  /// Whether the peer reads. While it does not, nothing arrives, and what the process sends stays
  /// queued on its side.
  void setReading(bool reading);
  /// Whether the process has cut the connection.
  bool cut() const;
  void close();

 private:
  friend class Kit;
  BusPeer(InProcessTransport& transport, std::uint32_t connection)
      : transport_(&transport), connection_(connection) {}
  InProcessTransport* transport_;
  std::uint32_t connection_;
  std::vector<unsigned char> partial_;
};

/// One process. Construction puts it in the place of whatever the thread had before, destruction
/// leaves an empty one; handlers are made after the kit and destroyed before it. A restart is a new
/// Kit on the same MemoryStores.
class Kit {
 public:
  Kit();
  explicit Kit(MemoryStores& stores, Limits limits = {});
  /// With an engine of another kind, such as a store file. Each batch is waited for when it is
  /// handed over, so that a test needs no more passes than with stores in memory.
  explicit Kit(std::unique_ptr<StoreEngine> engine, Limits limits = {});
  ~Kit();
  Kit(const Kit&) = delete;

  Recorder& seen() { return recorder_; }
  // Requires: the kit was not given an engine.
  MemoryStores& stores() { return *stores_; }
  MemoryEngine& engine() { return *engine_; }

  /// Hands a command to a handler as the bus would and returns the reply that it gave at once; an
  /// empty message when it gave none (yet). Everything else is in `seen()`.
  message ask(Handler& handler, message cmd, const Requester& who = {});

  /// One pass of the loop, without waiting.
  void pass();
  /// The status with which the process would have ended because its store failed; none while it
  /// goes on.
  std::optional<int> exitStatus() const { return exitStatus_; }

  /// Passes until nothing is left to do at the present time.
  void settle();
  /// Moves the clock and fires each timer that comes due at its own time.
  void advance(std::uint64_t milliseconds);

  /// Takes an address, so that peers can connect.
  void listen(std::uint32_t address);
  /// A connection from a user. Needs no listen().
  std::unique_ptr<BusPeer> connect(const Peer& peer = {0, 0, 1});
  /// Somebody to connect to at `address`: the next connection of the process to it is returned by
  /// `acceptedPeer`, null when there is none.
  void serve(std::uint32_t address, bool listening = true);
  std::unique_ptr<BusPeer> acceptedPeer();
  /// Who is busy at `address` takes no connection for the moment.
  void setBusy(std::uint32_t address, bool busy);

 private:
  explicit Kit(std::unique_ptr<MemoryStores> stores);
  void assemble(std::unique_ptr<StoreEngine> engine, Limits limits);

  std::unique_ptr<MemoryStores> ownStores_;
  MemoryStores* stores_ = nullptr;
  MemoryEngine* engine_ = nullptr;           // owned by the looper
  VirtualLoop* loop_ = nullptr;              // owned by the looper
  InProcessTransport* transport_ = nullptr;  // owned by the looper
  Recorder recorder_;
  std::optional<int> exitStatus_;
};

}  // namespace nv::testkit
