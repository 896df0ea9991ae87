/// A client process made with the library, and a service that comes and goes.

#include "platform/follow.h"

#include <csignal>
#include <functional>

#include <gtest/gtest.h>

#include "platform/client.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/looper.h"
#include "platform/post.h"
#include "platform/timer.h"
#include "tests/support/raw_client.h"
#include "tests/support/text_map.h"
#include "tests/system/service_process.h"

namespace nv::testkit {
namespace {

constexpr unsigned kPatience = 20000;  // milliseconds

class Client : public ::testing::Test {
 protected:
  Client() { connectBus(place.bus()); }
  ~Client() override { getLooper()->assemble({}); }

  /// Runs this process's loop until something has happened; false when it does not.
  static bool until(const std::function<bool()>& happened) {
    bool late = false;
    const Timer guard(kPatience, [&late] { late = true; });
    while (!happened() && !late) getLooper()->runOnce(true);
    return happened();
  }

  /// A post that counts its answer, and its error code or 0.
  Post post(message request = command(cmd::get), unsigned timeout = kPatience) {
    const auto note = [this](const message& reply) { code = errorCode(reply), ++answers; };
    return Post(request, note, timeout);
  }
  unsigned codeOf(const Post& asked) {
    EXPECT_TRUE(until([&] { return !asked.pending(); }));
    return code;
  }

  /// What the follow tells next, up to something that ends in `last`.
  std::string heard(const std::string& last) {
    until([&] { return seen.ends_with(last); });
    return std::exchange(seen, {});
  }

  Place place;
  ServiceProcess service{place};
  std::string seen;
  unsigned code = 0;
  int answers = 0;
};

TEST_F(Client, AFollowWaitsForTheServiceSurvivesItsRestartAndHearsOfWhatVanishedMeanwhile) {
  const auto note = [this](const message& msg) {
    if (!seen.empty()) seen += ", ";
    const auto id = std::to_string(msg.get(key::objectId));
    seen += msg.empty() ? "end" : msg.get(key::absent) ? id + " gone" : id + "=" + msg.get(kText);
  };
  void* const handle = follow(note, command(0), true);
  EXPECT_EQ(codeOf(post()), err::noRoute);
  ASSERT_TRUE(service.start());
  EXPECT_EQ(heard("end"), "end");
  for (std::uint32_t id = 1; id <= 3; ++id) EXPECT_EQ(codeOf(post(addText(id, "old"))), 0U);
  EXPECT_EQ(heard("3=old"), "1=old, 2=old, 3=old");

  service.end(SIGKILL);
  ASSERT_TRUE(service.start());
  RawClient other(place.socket());
  other.ask(command(cmd::removeObj, 2));
  other.ask(addText(4, "new"));
  EXPECT_EQ(heard("end"), "1=old, 3=old, 4=new, 2 gone, end");
  other.ask(setText(3, "changed"));
  EXPECT_EQ(heard("changed"), "3=changed");
  other.ask(command(cmd::removeObj, 1));
  EXPECT_EQ(heard("gone"), "1 gone");
  stopFollow(handle);
}

TEST_F(Client, ARequestIsAnsweredOnceWhetherTheServiceIsThereSlowKilledOrNot) {
  EXPECT_EQ(codeOf(post()), err::noRoute);
  ASSERT_TRUE(service.start());
  EXPECT_EQ(codeOf(post()), 0U);

  kill(service.pid(), SIGSTOP);
  EXPECT_EQ(codeOf(post(command(cmd::get), 20)), err::timedOut);
  kill(service.pid(), SIGCONT);
  EXPECT_EQ(codeOf(post()), 0U);  // the late reply came before this one
  EXPECT_EQ(answers, 4);

  kill(service.pid(), SIGSTOP);
  const Post inFlight = post();
  getLooper()->runOnce(false);
  EXPECT_TRUE(inFlight.pending());
  service.end(SIGKILL);
  EXPECT_EQ(codeOf(inFlight), err::noRoute);
  EXPECT_EQ(codeOf(post()), err::noRoute);
  ASSERT_TRUE(service.start());
  EXPECT_EQ(codeOf(post()), 0U);
  EXPECT_EQ(answers, 7);
}

}  // namespace
}  // namespace nv::testkit
