/// A process whose clock, disk and peers a test moves, and a log for what it notes.
#pragma once

#include <sstream>
#include <utility>

#include <gtest/gtest.h>

#include "platform/follow.h"
#include "platform/post.h"
#include "platform/undo_log.h"
#include "testing/kit.h"
#include "tests/support/list_handler.h"

namespace nv::testkit {

/// Of the process under test, and of another one.
inline constexpr std::uint32_t kAddress = 100;
inline constexpr std::uint32_t kElsewhere = 200;

inline message command(std::uint32_t tag, unsigned code, std::uint32_t id = kNoId) {
  message msg{{key::command, code}, {key::tag, tag}};
  msg.insert_vector(key::route, kAddress);
  if (id != kNoId) msg.insert(key::objectId, id);
  return msg;
}

inline message setText(std::uint32_t tag, std::uint32_t id, const std::string& text) {
  return command(tag, cmd::setObj, id).insert(key::name, text);
}

inline message requestTo(std::uint32_t address, unsigned code) {
  return message{{key::command, code}}.insert(key::route, {address});
}

inline message replyTo(const message& request) {
  return {{key::frameKind, 1}, {key::tag, request.get(key::tag)}};
}

inline unsigned errorCode(const message& reply) {
  unsigned code = 0;
  isError(reply, &code, nullptr);
  return code;
}

/// "2 ok" for a success with tag 2, "2 fe0104" for an error, "~1 7=text" for a notification of
/// object 7 to subscription 1, "~1 7 gone" for one that says that it is gone, "~1 ended" for the
/// end of the subscription.
inline std::string line(const std::vector<message>& messages) {
  std::ostringstream out;
  for (const auto& msg : messages) {
    if (out.tellp() > 0) out << ", ";
    if (msg.get(key::frameKind) == 2) {
      out << '~' << msg.get(key::tag) << ' ' << msg.get(key::objectId);
      msg.get(key::absent) ? out << " gone" : out << '=' << msg.get(key::name);
    } else if (msg.get(key::frameKind) == 3) {
      out << '~' << msg.get(key::tag) << " ended";
    } else {
      out << msg.get(key::tag) << ' ';
      isError(msg) ? out << std::hex << errorCode(msg) << std::dec : out << "ok";
    }
  }
  return out.str();
}

/// Its handler is at kAddress, but it does not listen there.
class Loop : public ::testing::Test {
 protected:
  explicit Loop(const Limits& limits = {}) : kit(stores, limits) { serve(texts); }

  static void serve(Handler& handler, std::uint32_t id = kAddress) {
    getLooper()->addHandler(id, &handler);
  }

  void note(const std::string& word) { log += (log.empty() ? "" : " ") + word; }
  std::string taken() { return std::exchange(log, {}); }
  /// The same when nothing is left to do.
  std::string settled() {
    kit.settle();
    return taken();
  }

  /// A follow that notes "3=three", "-3" for an object that is gone, "." for the end mark.
  void* followAll(std::uint32_t address = kAddress) {
    const auto heard = [this](const message& msg) {
      const auto id = std::to_string(msg.get(key::objectId, 999));
      note(msg.empty() ? "." : msg.get(key::absent) ? "-" + id : id + "=" + msg.get(key::name));
    };
    return follow(heard, requestTo(address, 0), false);
  }

  /// A post that notes the count in the answer, or the error: "fe0102 nobody listens there".
  Post ask(message request, std::uint32_t timeout = 1000) {
    const auto heard = [this](const message& reply) {
      std::ostringstream word;
      isError(reply) ? word << std::hex << errorCode(reply) << ' ' << getError(reply)
                     : word << reply.get(key::count);
      note(word.str());
    };
    return Post(request, heard, timeout);
  }

  MemoryStores stores;
  std::string log;
  Kit kit;
  ListHandler texts{"texts"};
};

/// A process that listens, and what its peers say and hear.
class Bus : public Loop {
 protected:
  explicit Bus(const Limits& limits = {}) : Loop(limits) { kit.listen(kAddress); }

  std::vector<message> heard(BusPeer& peer) {
    kit.settle();
    return peer.received();
  }
  std::vector<message> heard(BusPeer& peer, const message& sent) {
    peer.send(sent);
    return heard(peer);
  }
  std::string said(BusPeer& peer) { return line(heard(peer)); }
  std::string said(BusPeer& peer, const message& sent) { return line(heard(peer, sent)); }

  /// Subscription 1 of a new connection, or the first so many.
  std::unique_ptr<BusPeer> subscriber(std::uint32_t subscriptions = 1) {
    auto peer = kit.connect();
    for (std::uint32_t tag = 1; tag <= subscriptions; ++tag)
      EXPECT_FALSE(isError(heard(*peer, command(tag, cmd::subscribe)).at(0)));
    return peer;
  }
};

}  // namespace nv::testkit
