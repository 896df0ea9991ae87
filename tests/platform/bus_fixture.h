/// A service on a bus in this process, and what its peers say and hear.
#pragma once

#include <sstream>

#include <gtest/gtest.h>

#include "testing/kit.h"
#include "tests/support/list_handler.h"

namespace nv::testkit {

inline constexpr std::uint32_t kAddress = 100;

inline message command(std::uint32_t tag, unsigned code, std::uint32_t id = kNoId) {
  message msg{{key::command, code}, {key::tag, tag}};
  msg.insert_vector(key::route, kAddress);
  if (id != kNoId) msg.insert(key::objectId, id);
  return msg;
}

inline message setText(std::uint32_t tag, std::uint32_t id, const std::string& text) {
  auto msg = command(tag, cmd::setObj, id);
  msg.insert(key::name, text);
  return msg;
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

class Bus : public ::testing::Test {
 protected:
  explicit Bus(const Limits& limits = {}) : kit(stores, limits) { kit.listen(kAddress); }

  void serve(ListHandler& handler) { getLooper()->addHandler(kAddress, &handler); }

  std::string said(BusPeer& peer) {
    kit.settle();
    return line(peer.received());
  }

  MemoryStores stores;
  Kit kit;
};

}  // namespace nv::testkit
