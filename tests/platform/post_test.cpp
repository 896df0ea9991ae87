/// Requests of this process: when they leave, and that each is answered once.

#include "platform/post.h"

#include "platform/timer.h"
#include "tests/platform/bus_fixture.h"

namespace nv::testkit {
namespace {

TEST_F(Loop, APostToAHandlerOfTheSameProcessNeverTouchesTheBus) {
  const Post post = ask(requestTo(kAddress, cmd::getCount));
  EXPECT_EQ(taken(), "") << "never from within the constructor";
  EXPECT_EQ(settled(), "4294967295");
  EXPECT_FALSE(post.pending());
}

TEST_F(Loop, ACancelledPostIsSilentAndAnEmptyFunctionIsAllowed) {
  auto request = requestTo(kAddress, cmd::getCount);
  ask(request).cancel();
  const Post empty(request, {}, 1000);
  auto own = std::make_unique<Post>();
  const auto end = [&](const message&) {
    own.reset();
    note("own");
  };
  *own = Post(request, end, 1000);
  kit.advance(2000);
  EXPECT_EQ(taken(), "own");
}

/// Somebody elsewhere, played by the test. A request carries a number as its object id.
class PostElsewhere : public Loop {
 protected:
  PostElsewhere() { kit.serve(kElsewhere); }

  static message numbered(std::uint32_t number) {
    return requestTo(kElsewhere, cmd::setObj).insert(key::objectId, number);
  }
  /// The other end of a connection that this process has made; null: of none.
  BusPeer* accepted() {
    kit.settle();
    if (auto next = kit.acceptedPeer()) peers.push_back(std::move(next));
    return peers.empty() ? nullptr : peers.back().get();
  }
  /// The numbers of the requests that have come, each answered.
  std::string answered() {
    std::string numbers;
    for (const auto& request : accepted()->received()) {
      numbers += std::to_string(request.get(key::objectId));
      peers.back()->send(replyTo(request));
    }
    return numbers;
  }

  std::vector<std::unique_ptr<BusPeer>> peers;
};

TEST_F(PostElsewhere, KeepsTheLoopAwakeAndIsAnsweredExactlyOnce) {
  const Post post = ask(numbered(1));
  EXPECT_TRUE(getLooper()->hasWork()) << "it leaves in the next pass, which must not wait";
  kit.pass();
  EXPECT_FALSE(getLooper()->hasWork());
  const auto request = accepted()->received().at(0);
  for (const unsigned count : {3U, 4U}) peers[0]->send(replyTo(request).insert(key::count, count));
  kit.advance(5000);
  EXPECT_EQ(taken(), "3");
}

TEST_F(PostElsewhere, IsNotAnsweredByAnotherService) {
  constexpr std::uint32_t kForger = 300;
  kit.serve(kForger);
  const Post post = ask(requestTo(kElsewhere, cmd::getCount), 60000);
  auto* const asked = accepted();
  const auto request = asked->received().at(0);
  const Post forgers = ask(requestTo(kForger, cmd::getCount), 60000);
  followAll(kElsewhere);
  auto* const forger = accepted();
  const auto subscribe = asked->received().at(0);
  asked->send(replyTo(subscribe));
  kit.settle();
  asked->send(replyTo(asked->received().at(0)));
  EXPECT_EQ(settled(), ".");
  const message notification{{key::frameKind, 2}, {key::tag, subscribe.get(key::tag)}};

  forger->send(replyTo(request).insert(key::count, 666));
  forger->send(message(notification).insert(key::name, "forged"));
  forger->send(message(notification).insert(key::frameKind, 3));
  kit.advance(1000);
  EXPECT_EQ(taken(), "");
  EXPECT_TRUE(asked->received().empty()) << "the follow has not begun anew";
  asked->send(replyTo(request).insert(key::count, 3));
  asked->send(message(notification).insert(key::name, "told"));
  EXPECT_EQ(settled(), "3 0=told");
}

TEST_F(PostElsewhere, EndsWithoutAnAnswerInAnErrorThatSaysWhy) {
  const Post unreachable = ask(requestTo(300, cmd::getCount));
  EXPECT_EQ(settled(), "fe0102 nobody listens there");
  const Post slow = ask(numbered(1), 6000);
  kit.advance(5999);
  EXPECT_EQ(taken(), "");
  kit.advance(1);
  EXPECT_EQ(taken(), "fe0103 no answer in time");
  EXPECT_EQ(answered(), "1");
  EXPECT_EQ(settled(), "") << "it comes too late";
  const Post cutOff = ask(numbered(2), 6000);
  accepted()->close();
  EXPECT_EQ(settled(), "fe0102 the connection ended");
}

TEST_F(PostElsewhere, TriesABusyServiceAgainWhileAnAnswerIsAwaited) {
  kit.setBusy(kElsewhere, true);
  const Post tooShort = ask(numbered(1), 100), patient = ask(numbered(2), 5000);
  Post cancelled = ask(numbered(3), 5000);
  getLooper()->send(numbered(5));
  kit.advance(1000);
  EXPECT_EQ(taken(), "fe0103 the service takes no more connections for now");
  cancelled.cancel();
  kit.setBusy(kElsewhere, false);
  const Post behind = ask(numbered(4), 5000);
  kit.advance(100);
  EXPECT_EQ(answered(), "254") << "in the order in which they were made";
  kit.advance(10000);
  EXPECT_EQ(taken(), "0 0");
}

TEST_F(PostElsewhere, TriesABusyServiceNotForEverWhenNobodyAwaitsAnAnswer) {
  kit.setBusy(kElsewhere, true);
  getLooper()->send(numbered(1));
  kit.advance(60000);
  EXPECT_FALSE(getLooper()->nextTimer());
  kit.setBusy(kElsewhere, false);
  kit.advance(60000);
  EXPECT_FALSE(accepted());
}

TEST_F(PostElsewhere, LeavesWhenTheChangeThatCausedItIsOnDiskAndSomebodyStillAwaitsIt) {
  kit.engine().hold();
  const Timer work(0, [&] {
    texts.put(1, "one");
    getLooper()->send(numbered(1));
  });
  EXPECT_FALSE(accepted());
  // The same outside of the loop.
  const Post timedOut = ask(numbered(2), 100);
  Post cancelled = ask(numbered(3), 60000);
  const Post waiting = ask(numbered(4), 60000);
  auto fifth = numbered(5);
  const Post endless(fifth, {}, 0);
  getLooper()->send(numbered(6));
  kit.advance(1000);
  cancelled.cancel();
  EXPECT_EQ(taken(), "fe0103 no answer in time");
  EXPECT_FALSE(accepted());
  kit.engine().release();
  kit.settle();
  EXPECT_EQ(answered(), "1456");
  EXPECT_EQ(settled(), "0");
}

TEST_F(PostElsewhere, IsAnsweredByAnErrorToNumberZeroAsAllThatWasAskedThere) {
  constexpr std::uint32_t kOther = 300;
  kit.serve(kOther);
  const Post first = ask(numbered(1)), second = ask(numbered(2));
  accepted();
  const Post third = ask(requestTo(kOther, cmd::getCount));
  kit.settle();
  peers[0]->send(errorMsg(err::tooMany, "full").insert(key::frameKind, 1));
  peers[0]->close();
  EXPECT_EQ(settled(), "fe0104 full fe0104 full");
  EXPECT_TRUE(third.pending());
}

TEST_F(PostElsewhere, HearsAnswersHoweverManyRequestsWait) {
  auto request = numbered(1).insert(key::name, std::string(1000, 'x'));
  std::vector<Post> posts;
  posts.push_back(ask(request, 60000));
  auto* const service = accepted();
  service->setReading(false);
  for (int i = 0; i < 200; ++i) posts.push_back(ask(request, 60000));
  kit.settle();
  const auto first = service->received();
  ASSERT_EQ(first.size(), 1U);
  for (std::uint32_t i = 0; i <= 200; ++i)
    service->send(replyTo({{key::tag, first[0].get(key::tag) + i}}));
  EXPECT_EQ(settled().size(), 201 * 2 - 1U);
}

}  // namespace
}  // namespace nv::testkit
