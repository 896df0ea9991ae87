/// A process in a test: virtual time, stores in memory, a bus without sockets, and a record of all calls.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/handler.h"
#include "platform/looper.h"
#include "platform/observer.h"
#include "testing/memory_engine.h"

namespace nv::testkit {

/// Everything that the platform was asked for, in order. Takes no part in what happens.
class Recorder : public Observer {
 public:
  struct StoreOp {
    std::string store;
    std::uint32_t id;
    std::optional<message> record;  // empty: removed
  };
  struct Reply {
    message request, reply;
  };
  struct Notify {
    Handler* handler;
    std::uint32_t id;
    bool removed;
    void* cookie;
    message extra;
  };
  struct Undo {
    message request, undo;
    std::string description;
  };
  struct Follow {
    void* handle;
    message target;
    bool wait;
    std::function<void(const message&)> deliver;
    bool stopped = false;
  };
  struct Posted {
    message request;
    std::function<void(const message&)> answer;
  };

  std::vector<StoreOp> storeOps;
  std::vector<Reply> replies;
  std::vector<Notify> notifies;
  std::vector<Undo> undos;
  std::vector<message> sentMessages;
  std::vector<Follow> follows;
  std::vector<Posted> posts;
  /// All of the above in the order of the calls, a word each: "store 7", "unstore 7", "reply", "notify 7",
  /// "undo <description>", "send", "follow", "unfollow", "post". A test's own hooks may add to it.
  std::vector<std::string> log;

  /// Whether the test answers follows and posts itself, instead of the bus.
  bool answersFollows = false;
  bool answersPosts = false;

  /// Forgets everything but the follows and posts that are under way.
  void clear();
  /// The log as one line, joined with ", ".
  std::string line() const;

  void storeSet(std::string_view store, std::uint32_t id, const message& record) override;
  void storeRemove(std::string_view store, std::uint32_t id) override;
  void reply(const message& request, const message& reply) override;
  void notifyChange(Handler* handler, std::uint32_t id, bool removed, void* cookie,
                    const message& extra) override;
  void undo(const message& request, const message& undo, const std::string& description) override;
  void sent(const message& msg) override;
  bool follow(void* handle, const message& target, bool wait,
              std::function<void(const message&)> deliver) override;
  void followStopped(void* handle) override;
  bool post(const message& request, std::function<void(const message&)> answer) override;
};

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

/// The other end of a connection to the process under test: a client that may be as rude as it likes.
class BusPeer {
 public:
  /// A frame that holds `msg`, or any bytes at all.
  void send(const message& msg);
  void sendBytes(std::vector<unsigned char> bytes);
  /// The messages that have arrived, oldest first; they are taken. While `reading` is false none arrive, and
  /// what the process sends stays queued on its side.
  std::vector<message> received();
  bool reading = true;
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

/// One process. Construction puts it in the place of whatever the thread had before, destruction leaves an
/// empty one; handlers are made after the kit and destroyed before it. A restart is a new Kit on the same
/// MemoryStores.
class Kit {
 public:
  Kit();
  explicit Kit(MemoryStores& stores, Limits limits = {});
  ~Kit();
  Kit(const Kit&) = delete;

  Recorder& seen() { return recorder_; }
  MemoryStores& stores() { return *stores_; }
  MemoryEngine& engine() { return *engine_; }

  /// Hands a command to a handler as the bus would and returns the reply that it gave at once; an empty
  /// message when it gave none (yet). Everything else is in `seen()`.
  message ask(Handler& handler, message cmd, const Requester& who = {});

  /// One pass of the loop, without waiting.
  void pass();
  /// Passes until nothing is left to do at the present time.
  void settle();
  /// Moves the clock and fires each timer that comes due at its own time.
  void advance(std::uint64_t milliseconds);

  /// Takes an address, so that peers can connect.
  void listen(std::uint32_t address);
  /// A connection from a user. Needs no listen().
  std::unique_ptr<BusPeer> connect(const Peer& peer = {0, 0, 1});
  /// Somebody to connect to at `address`: the next connection of the process to it is returned by
  /// `acceptedPeer`.
  void serve(std::uint32_t address);
  std::unique_ptr<BusPeer> acceptedPeer();

 private:
  std::unique_ptr<MemoryStores> ownStores_;
  MemoryStores* stores_;
  MemoryEngine* engine_ = nullptr;          // owned by the looper
  VirtualLoop* loop_ = nullptr;             // owned by the looper
  InProcessTransport* transport_ = nullptr; // owned by the looper
  Recorder recorder_;
};

}  // namespace nv::testkit
