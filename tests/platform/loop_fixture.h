/// A process whose clock and disk a test moves, and a log for what it notes.
#pragma once

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "testing/kit.h"
#include "tests/support/list_handler.h"

namespace nv::testkit {

inline constexpr std::uint32_t kElsewhere = 200;

inline message requestTo(std::uint32_t address, unsigned code) {
  message msg{{key::command, code}};
  msg.insert_vector(key::route, address);
  return msg;
}

inline unsigned errorCode(const message& reply) {
  unsigned code = 0;
  isError(reply, &code, nullptr);
  return code;
}

class Loop : public ::testing::Test {
 protected:
  void note(const std::string& word) { log += (log.empty() ? "" : " ") + word; }
  std::string taken() { return std::exchange(log, {}); }

  MemoryStores stores;
  Kit kit{stores};
  std::string log;
};

}  // namespace nv::testkit
