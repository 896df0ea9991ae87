/// Services of the examples as processes, and a client of theirs in this one.
#pragma once

#include <csignal>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/client.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/looper.h"
#include "platform/post.h"
#include "platform/timer.h"
#include "tests/system/service_process.h"

namespace cmd = nv::cmd;
namespace key = nv::key;
namespace fs = std::filesystem;
using nv::message;
using nv::testkit::ServiceProcess;

constexpr unsigned kPatience = 60000;  // milliseconds

class ProcessTest : public ::testing::Test {
 protected:
  using Route = std::vector<std::uint32_t>;

  ~ProcessTest() override { nv::getLooper()->assemble({}); }

  /// Runs the loop until something has happened; false when it does not.
  static bool until(const std::function<bool()>& happened) {
    bool late = false;
    const nv::Timer guard(kPatience, [&late] { late = true; });
    while (!happened() && !late) nv::getLooper()->runOnce(true);
    return happened();
  }
  /// Sends a request and does not wait for the answer.
  static nv::Post send(const Route& route, message request, message& answer) {
    request.insert(key::route, route);
    return {request, [&answer](const message& reply) { answer = reply; }, kPatience};
  }
  static message ask(const Route& route, const message& request) {
    message answer;
    const auto post = send(route, request, answer);
    until([&] { return !post.pending(); });
    return answer;
  }

  const nv::testkit::Place place;
};
