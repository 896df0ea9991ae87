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
  ~Client() override {
    stopFollow(handle);
    getLooper()->assemble({});
  }

  /// Runs this process's loop until something has happened; false when it does not.
  static bool until(const std::function<bool()>& happened) {
    bool late = false;
    const Timer guard(kPatience, [&late] { late = true; });
    while (!happened() && !late) getLooper()->runOnce(true);
    return happened();
  }

  /// The answer to a request that may take `timeout` milliseconds.
  static message ask(message request, unsigned timeout = kPatience) {
    message answer;
    bool answered = false;
    const Post post(
        request, [&](const message& reply) { answer = reply, answered = true; }, timeout);
    until([&] { return answered; });
    return answer;
  }

  void startFollow() {
    handle = follow([this](const message& msg) { note(msg); }, command(0), true);
  }

  void note(const message& msg) {
    if (!seen.empty()) seen += ", ";
    if (msg.empty()) {
      seen += "end";
    } else {
      seen += std::to_string(msg.get(key::objectId));
      seen += msg.get(key::absent) ? " gone" : "=" + msg.get(kText);
    }
  }

  /// What the follow tells next, up to something that ends in `last`.
  std::string heard(const std::string& last) {
    until([&] { return seen.ends_with(last); });
    return std::exchange(seen, {});
  }

  Place place;
  ServiceProcess service{place};
  void* handle = nullptr;
  std::string seen;
};

TEST_F(Client, FollowsTheObjectsThenHearsOfEachChange) {
  ASSERT_TRUE(service.start());
  ask(addText(1, "one"));
  ask(addText(2, "two"));
  startFollow();
  EXPECT_EQ(heard("end"), "1=one, 2=two, end");
  ask(setText(2, "zwei"));
  EXPECT_EQ(heard("zwei"), "2=zwei");
  ask(command(cmd::removeObj, 1));
  EXPECT_EQ(heard("gone"), "1 gone");
}

TEST_F(Client, AFollowWaitsForAServiceThatIsNotThereYet) {
  startFollow();
  EXPECT_EQ(errorCode(ask(command(cmd::get))), err::noRoute);
  ASSERT_TRUE(service.start());
  EXPECT_EQ(heard("end"), "end");
  ask(addText(1, "one"));
  EXPECT_EQ(heard("one"), "1=one");
}

TEST_F(Client, AFollowSurvivesARestartOfTheServiceAndHearsOfWhatVanishedMeanwhile) {
  ASSERT_TRUE(service.start());
  for (std::uint32_t id = 1; id <= 3; ++id) ask(addText(id, "old"));
  startFollow();
  EXPECT_EQ(heard("end"), "1=old, 2=old, 3=old, end");

  service.end(SIGKILL);
  ASSERT_TRUE(service.start());
  RawClient other(place.socket());
  other.ask(command(cmd::removeObj, 2));
  other.ask(addText(4, "new"));
  EXPECT_EQ(heard("end"), "1=old, 3=old, 4=new, 2 gone, end");
  other.ask(setText(3, "changed"));
  EXPECT_EQ(heard("changed"), "3=changed");
}

TEST_F(Client, ARequestToAServiceThatIsNotThereIsAnsweredAtOnce) {
  EXPECT_EQ(errorCode(ask(command(cmd::get))), err::noRoute);
  ASSERT_TRUE(service.start());
  EXPECT_TRUE(ask(command(cmd::get)).has(kRequest));
  service.end(SIGKILL);
  EXPECT_EQ(errorCode(ask(command(cmd::get))), err::noRoute);
  ASSERT_TRUE(service.start());
  EXPECT_TRUE(ask(command(cmd::get)).has(kRequest));
}

TEST_F(Client, ARequestInFlightIsAnsweredWhenTheServiceIsKilled) {
  ASSERT_TRUE(service.start());
  ASSERT_TRUE(ask(command(cmd::get)).has(kRequest));
  kill(service.pid(), SIGSTOP);
  auto request = command(cmd::get);
  int answers = 0;
  message answer;
  const Post post(
      request, [&](const message& reply) { answer = reply, ++answers; }, kPatience);
  getLooper()->runOnce(false);
  EXPECT_EQ(answers, 0);
  service.end(SIGKILL);
  EXPECT_TRUE(until([&] { return answers > 0; }));
  EXPECT_EQ(errorCode(answer), err::noRoute);
  EXPECT_FALSE(post.pending());
}

TEST_F(Client, ARequestThatTakesTooLongIsAnsweredOnce) {
  ASSERT_TRUE(service.start());
  ASSERT_TRUE(ask(command(cmd::get)).has(kRequest));
  kill(service.pid(), SIGSTOP);
  auto request = command(cmd::get);
  int answers = 0;
  message answer;
  const Post post(
      request, [&](const message& reply) { answer = reply, ++answers; }, 20);
  EXPECT_TRUE(until([&] { return answers > 0; }));
  EXPECT_EQ(errorCode(answer), err::timedOut);
  kill(service.pid(), SIGCONT);
  EXPECT_TRUE(ask(command(cmd::get)).has(kRequest));  // the late reply came before this one
  EXPECT_EQ(answers, 1);
}

TEST_F(Client, ReadsAllPagesOfALargeSet) {
  constexpr std::uint32_t kTexts = 100;
  ASSERT_TRUE(service.start());
  for (std::uint32_t id = 1; id <= kTexts; ++id) ask(addText(id, std::string(500, 'x')));
  std::uint32_t objects = 0;
  bool complete = false;
  const auto count = [&](const message& msg) {
    msg.empty() ? void(complete = true) : void(++objects);
  };
  handle = follow(count, command(0), true);
  EXPECT_TRUE(until([&] { return complete; }));
  EXPECT_EQ(objects, kTexts);
}

}  // namespace
}  // namespace nv::testkit
