/// Requests of this process: when they leave, and that each is answered once.

#include "platform/post.h"

#include <gtest/gtest.h>

#include "platform/follow.h"
#include "platform/timer.h"
#include "tests/platform/loop_fixture.h"

namespace nv::testkit {
namespace {

TEST_F(Loop, APostToAHandlerOfTheSameProcessNeverTouchesTheBus) {
  ListHandler texts;
  getLooper()->addHandler(7, &texts);  // a process that listens nowhere
  auto request = requestTo(7, cmd::getCount);
  const Post post(
      request, [&](const message& reply) { note(std::to_string(reply.get(key::count))); }, 1000);
  EXPECT_EQ(taken(), "") << "never from within the constructor";
  kit.settle();
  EXPECT_EQ(taken(), "4294967295");
  EXPECT_FALSE(post.pending());
}

TEST_F(Loop, APostMadeBetweenPassesKeepsTheLoopAwake) {
  kit.serve(kElsewhere);
  auto request = requestTo(kElsewhere, cmd::getCount);
  const Post post(
      request, [](const message&) {}, 1000);
  EXPECT_TRUE(getLooper()->hasWork()) << "it leaves in the next pass, which must not wait";
  kit.pass();
  EXPECT_FALSE(getLooper()->hasWork());
}

TEST_F(Loop, APostIsAnsweredExactlyOnce) {
  kit.serve(kElsewhere);
  auto request = requestTo(kElsewhere, cmd::getCount);
  const Post post(
      request,
      [&](const message& reply) {
        note(isError(reply) ? "error" : std::to_string(reply.get(key::count)));
      },
      1000);
  kit.settle();
  auto service = kit.acceptedPeer();
  ASSERT_TRUE(service);
  const auto asked = service->received();
  ASSERT_EQ(asked.size(), 1U);
  message reply{{key::frameKind, 1}, {key::tag, asked[0].get(key::tag)}, {key::count, 3}};
  service->send(reply);
  service->send(reply);
  kit.advance(5000);
  EXPECT_EQ(taken(), "3");
}

TEST_F(Loop, NoServiceAnswersForAnother) {
  constexpr std::uint32_t kForger = 300;
  kit.serve(kElsewhere);
  kit.serve(kForger);
  auto request = requestTo(kElsewhere, cmd::getCount), other = requestTo(kForger, cmd::getCount);
  const auto heard = [&](const message& reply) { note(std::to_string(reply.get(key::count))); };
  const Post post(request, heard, 60000);
  kit.settle();
  const auto asked = kit.acceptedPeer();
  const auto tag = asked->received().at(0).get(key::tag);
  const Post forgers(other, heard, 60000);
  void* const followed =
      follow([&](const message& msg) { note(msg.empty() ? "." : msg.get(key::name)); },
             requestTo(kElsewhere, 0), false);
  kit.settle();
  const auto forger = kit.acceptedPeer();
  const auto subscription = asked->received().at(0).get(key::tag);
  asked->send({{key::frameKind, 1}, {key::tag, subscription}});
  kit.settle();
  asked->send({{key::frameKind, 1}, {key::tag, asked->received().at(0).get(key::tag)}});
  kit.settle();
  EXPECT_EQ(taken(), ".");

  forger->send({{key::frameKind, 1}, {key::tag, tag}, {key::count, 666}});
  forger->send({{key::frameKind, 2}, {key::tag, subscription}, {key::name, "forged"}});
  forger->send({{key::frameKind, 3}, {key::tag, subscription}});
  kit.advance(1000);
  EXPECT_EQ(taken(), "");
  EXPECT_TRUE(asked->received().empty()) << "the follow has not begun anew";
  asked->send({{key::frameKind, 1}, {key::tag, tag}, {key::count, 3}});
  asked->send({{key::frameKind, 2}, {key::tag, subscription}, {key::name, "told"}});
  kit.settle();
  EXPECT_EQ(taken(), "3 told");
  stopFollow(followed);
}

TEST_F(Loop, APostWithoutAnswerEndsInAnErrorThatSaysWhy) {
  std::vector<unsigned> codes;
  const auto record = [&](const message& reply) { codes.push_back(errorCode(reply)); };
  auto nobody = requestTo(kElsewhere, cmd::getCount);
  const Post unreachable(nobody, record, 1000);
  kit.settle();
  EXPECT_EQ(codes, (std::vector<unsigned>{err::noRoute}));

  kit.serve(kElsewhere);
  const Post slow(nobody, record, 6000);
  kit.advance(5999);
  EXPECT_EQ(codes.size(), 1U);
  kit.advance(1);
  EXPECT_EQ(codes.back(), err::timedOut);

  const Post cutOff(nobody, record, 6000);
  kit.settle();
  kit.acceptedPeer()->close();
  kit.settle();
  EXPECT_EQ(codes, (std::vector<unsigned>{err::noRoute, err::timedOut, err::noRoute}));
}

TEST_F(Loop, ABusyServiceIsTriedAgainWhileAnAnswerIsAwaited) {
  kit.serve(kElsewhere);
  kit.setBusy(kElsewhere, true);
  const auto asked = [](std::uint32_t id) {
    return requestTo(kElsewhere, cmd::getObj).insert(key::objectId, id);
  };
  const auto heard = [&](const message& reply) { note(isError(reply) ? getError(reply) : "ok"); };
  std::vector<message> requests{asked(1), asked(2), asked(3), asked(4)};
  const Post tooShort(requests[0], heard, 100);
  const Post patient(requests[1], heard, 5000);
  Post cancelled(requests[2], heard, 5000);
  getLooper()->send(asked(5));
  kit.advance(1000);
  EXPECT_EQ(taken(), "the service takes no more connections for now");
  cancelled.cancel();
  kit.setBusy(kElsewhere, false);
  const Post behind(requests[3], heard, 5000);
  kit.advance(100);
  const auto service = kit.acceptedPeer();
  ASSERT_TRUE(service);
  std::string arrived;
  for (const auto& request : service->received()) {
    arrived += std::to_string(request.get(key::objectId));
    service->send({{key::frameKind, 1}, {key::tag, request.get(key::tag)}});
  }
  EXPECT_EQ(arrived, "254") << "in the order in which they were made";
  kit.advance(10000);
  EXPECT_EQ(taken(), "ok ok");
}

TEST_F(Loop, ABusyServiceIsNotTriedForEverWhenNobodyAwaitsAnAnswer) {
  kit.serve(kElsewhere);
  kit.setBusy(kElsewhere, true);
  getLooper()->send(requestTo(kElsewhere, cmd::runScript));
  kit.advance(60000);
  EXPECT_FALSE(getLooper()->nextTimer());
  kit.setBusy(kElsewhere, false);
  kit.advance(60000);
  EXPECT_FALSE(kit.acceptedPeer());
}

TEST_F(Loop, ACancelledPostIsSilentAndAnEmptyFunctionIsAllowed) {
  ListHandler texts;
  getLooper()->addHandler(7, &texts);
  auto request = requestTo(7, cmd::getCount);
  {
    const Post gone(
        request, [&](const message&) { note("gone"); }, 1000);
  }
  const Post empty(request, {}, 1000);
  auto own = std::make_unique<Post>();
  *own = Post(
      request,
      [&](const message&) {
        own.reset();
        note("own");
      },
      1000);
  kit.advance(2000);
  EXPECT_EQ(taken(), "own");
}

TEST_F(Loop, ARequestCausedByAChangeLeavesWhenTheChangeIsOnDisk) {
  kit.serve(kElsewhere);
  Store store("texts");
  kit.engine().hold();
  const Timer work(0, [&] {
    store.set(1, {{key::name, "one"}});
    getLooper()->send(requestTo(kElsewhere, cmd::runScript));
  });
  kit.settle();
  EXPECT_FALSE(kit.acceptedPeer());
  kit.engine().release();
  kit.settle();
  EXPECT_TRUE(kit.acceptedPeer());
}

TEST_F(Loop, ARequestThatNobodyAwaitsAnyMoreWhenItMayLeaveStays) {
  kit.serve(kElsewhere);
  Store store("texts");
  kit.engine().hold();
  const auto asked = [](std::uint32_t id) {
    return requestTo(kElsewhere, cmd::setObj).insert(key::objectId, id);
  };
  const auto heard = [&](const message& reply) { note(isError(reply) ? "error" : "ok"); };
  std::vector<message> requests{asked(1), asked(2), asked(3), asked(4)};
  store.set(1, {{key::name, "one"}});
  const Post timedOut(requests[0], heard, 100);
  Post cancelled(requests[1], heard, 60000);
  const Post waiting(requests[2], heard, 60000);
  const Post endless(requests[3], {}, 0);
  getLooper()->send(asked(5));
  kit.advance(1000);
  cancelled.cancel();
  kit.engine().release();
  kit.settle();
  EXPECT_EQ(taken(), "error");
  const auto service = kit.acceptedPeer();
  ASSERT_TRUE(service);
  std::string arrived;
  for (const auto& request : service->received())
    arrived += std::to_string(request.get(key::objectId));
  EXPECT_EQ(arrived, "345");
}

TEST_F(Loop, WhatIsSaidOutsideOfTheLoopWaitsForWhatWasStoredBefore) {
  kit.serve(kElsewhere);
  Store store("texts");
  kit.engine().hold();
  store.set(1, {{key::name, "one"}});
  getLooper()->send(requestTo(kElsewhere, cmd::runScript));
  kit.settle();
  EXPECT_FALSE(kit.acceptedPeer());
  kit.engine().release();
  kit.settle();
  EXPECT_TRUE(kit.acceptedPeer());
}

TEST_F(Loop, AnErrorToNumberZeroAnswersAllThatWasAskedThere) {
  constexpr std::uint32_t kOther = 300;
  kit.serve(kElsewhere);
  kit.serve(kOther);
  auto request = requestTo(kElsewhere, cmd::getCount), other = requestTo(kOther, cmd::getCount);
  const auto heard = [&](const message& reply) { note(getError(reply)); };
  const Post first(request, heard, 1000), second(request, heard, 1000), third(other, heard, 1000);
  kit.settle();
  const auto service = kit.acceptedPeer();
  service->send(errorMsg(err::tooMany, "full").insert(key::frameKind, 1));
  service->close();
  kit.settle();
  EXPECT_EQ(taken(), "full full");
  EXPECT_TRUE(third.pending());
}

TEST_F(Loop, AnswersAreReadHoweverManyRequestsWait) {
  kit.serve(kElsewhere);
  auto request = requestTo(kElsewhere, cmd::setObj);
  request.insert(key::name, std::string(1000, 'x'));
  std::size_t answered = 0;
  std::vector<Post> posts;
  posts.emplace_back(
      request, [&](const message&) { ++answered; }, 60000);
  kit.settle();
  auto service = kit.acceptedPeer();
  service->setReading(false);
  for (int i = 0; i < 200; ++i)
    posts.emplace_back(
        request, [&](const message&) { ++answered; }, 60000);
  kit.settle();
  const auto first = service->received();
  ASSERT_EQ(first.size(), 1U);
  const auto tag = first[0].get(key::tag);
  for (std::uint32_t i = 0; i <= 200; ++i)
    service->send({{key::frameKind, 1}, {key::tag, tag + i}});
  kit.settle();
  EXPECT_EQ(answered, 201U);
}

}  // namespace
}  // namespace nv::testkit
