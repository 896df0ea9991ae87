/// A record of every call that the platform was asked for.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/handler.h"
#include "platform/observer.h"

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
  /// All of the above in the order of the calls, a word each: "store 7", "unstore 7", "reply",
  /// "notify 7", "undo <description>", "send", "follow", "unfollow", "post". A test's own hooks may
  /// add to it.
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

}  // namespace nv::testkit
