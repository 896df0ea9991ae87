/// Follows: the whole set, then its changes, whatever happens at either end.

#include "platform/observer.h"
#include "tests/platform/bus_fixture.h"

namespace nv::testkit {
namespace {

/// With these objects, their ids as texts.
class LoopWithFour : public Loop {
 protected:
  LoopWithFour() {
    for (std::uint32_t id = 1; id <= 4; ++id) texts.texts[id] = std::to_string(id);
  }
};

TEST_F(LoopWithFour, AFollowDeliversTheWholeSetThenTheMarkThenChanges) {
  texts.texts[5] = "5";
  void* const handle = followAll();
  EXPECT_EQ(taken(), "");
  EXPECT_EQ(settled(), "1=1 2=2 3=3 4=4 5=5 .");
  texts.put(3, "new");
  EXPECT_EQ(settled(), "3=new");
  texts.cmdRemoveObj({}, 4);
  EXPECT_EQ(settled(), "-4");
  stopFollow(handle);
  texts.put(3, "unheard");
  EXPECT_EQ(settled(), "");
  EXPECT_EQ(texts.subscribers, 0);
  stopFollow(nullptr);
}

TEST_F(Loop, AFollowHearsOfAChangeOnlyWhenItIsOnDisk) {
  texts.texts[1] = "one";
  kit.engine().hold();
  texts.put(2, "two");
  followAll();
  EXPECT_EQ(settled(), "");
  kit.engine().commit();
  EXPECT_EQ(settled(), "1=one 2=two .");
  texts.put(1, "new");
  EXPECT_EQ(settled(), "");
  kit.engine().release();
  EXPECT_EQ(settled(), "1=new");
}

TEST_F(LoopWithFour, AFollowMayEndAtAnyOfItsMessagesOrMoments) {
  for (int last = 1; last <= 6; ++last) {
    void* handle = nullptr;
    int heard = 0;
    const auto count = [&](const message&) {
      if (++heard == last) stopFollow(handle);
    };
    handle = follow(count, requestTo(kAddress, 0), false);
    kit.settle();
    for (const std::uint32_t id : {1U, 2U}) {
      texts.put(id, "changed");
      kit.settle();
    }
    EXPECT_EQ(heard, last);
    EXPECT_EQ(texts.subscribers, 0);
  }
  for (int passes = 0; passes < 6; ++passes) {
    void* const handle = followAll();
    for (int i = 0; i < passes; ++i) kit.pass();
    stopFollow(handle);
    kit.settle();
    EXPECT_EQ(texts.subscribers, 0) << "after " << passes << " passes";
  }
}

TEST_F(LoopWithFour, AnObjectThatGoesWhileTheSetIsReadIsNotLost) {
  struct Shrinking : ListHandler {
    message cmdGetAll(const message& request, std::uint32_t startId, std::uint32_t count) override {
      auto reply = ListHandler::cmdGetAll(request, startId, count);
      if (startId == kNoId && texts.contains(3)) cmdRemoveObj({}, 3);  // begins the next page
      return reply;
    }
  } shrinking;
  shrinking.texts = texts.texts;
  serve(shrinking);
  followAll();
  EXPECT_EQ(settled(), "1=1 2=2 -3") << "it waits before it reads again";
  kit.advance(100);
  EXPECT_EQ(taken(), "1=1 2=2 4=4 .");
}

TEST_F(LoopWithFour, ASetWhosePagesLeadInACircleIsReadAgainLaterAndEverMoreRarely) {
  struct Circle : ListHandler {
    message cmdGetAll(const message& request, std::uint32_t startId, std::uint32_t count) override {
      ++pages;
      auto reply = ListHandler::cmdGetAll(request, startId, count);
      if (circular && !reply.has(key::startId)) reply.insert(key::startId, 3);
      return reply;
    }
    bool circular = true;
    int pages = 0;
  } circle;
  circle.texts = texts.texts;
  serve(circle);
  followAll();
  for (int i = 0; i < 100; ++i) kit.pass();
  EXPECT_EQ(circle.pages, 2);
  kit.advance(60000);
  EXPECT_LT(circle.pages, 60);
  EXPECT_EQ(taken().find('.'), std::string::npos);
  circle.circular = false;
  kit.advance(3200);
  EXPECT_EQ(taken(), "1=1 2=2 3=3 4=4 .");
  EXPECT_EQ(circle.subscribers, 1);
}

TEST_F(Loop, TheOneObjectOfAHolderIsFollowedAsObjectZero) {
  struct Holder : Handler {
    message cmdGet(const message&) override { return getObject(kNoId, 5); }
    message getObject(std::uint32_t, std::uint32_t) override { return {{key::name, text}}; }
    std::string text = "one";
  } holder;
  serve(holder);
  followAll();
  EXPECT_EQ(settled(), "0=one .");
  holder.text = "two";
  holder.notifyChange(kNoId, false, nullptr, {});
  EXPECT_EQ(settled(), "0=two");
}

/// The far end of a follow, played by the test.
class FollowedPeer {
 public:
  explicit FollowedPeer(Kit& kit) : kit_(kit) {}

  /// Answers subscribe and one page with these objects, on a new connection if there is one.
  void answer(const std::map<std::uint32_t, std::string>& objects) {
    kit_.settle();
    if (auto next = kit_.acceptedPeer()) peer = std::move(next);
    ASSERT_TRUE(peer);
    std::vector<flat_message> page;
    for (const auto& [id, text] : objects)
      page.push_back(message{{key::objectId, id}, {key::name, text}}.flat());
    for (int i = 0; i < 2; ++i) {
      kit_.settle();
      for (const auto& request : peer->received()) {
        if (request.get(key::command) == cmd::subscribe) subscription = request.get(key::tag);
        peer->send(replyTo(request).insert(key::objects, page));
      }
    }
    kit_.settle();
  }

  std::unique_ptr<BusPeer> peer;
  std::uint32_t subscription = 0;  // the number of the last request to subscribe

 private:
  Kit& kit_;
};

TEST_F(Loop, AFollowComesBackAfterALostConnectionOrTheEndOfItsSubscriptionAndTellsWhatVanished) {
  void* const handle = followAll(kElsewhere);
  kit.advance(250);  // nobody there yet
  EXPECT_EQ(taken(), "");
  kit.serve(kElsewhere);
  kit.advance(3200);
  FollowedPeer far(kit);
  far.answer({{1, "one"}, {2, "two"}, {3, "three"}});
  EXPECT_EQ(taken(), "1=one 2=two 3=three .");
  far.peer->close();
  EXPECT_EQ(settled(), "") << "a lost connection says nothing of the objects";
  kit.advance(200);
  far.answer({{2, "two"}, {4, "four"}});
  EXPECT_EQ(taken(), "2=two 4=four -1 -3 .");
  far.peer->send({{key::frameKind, 3}, {key::tag, far.subscription}});
  kit.advance(200);
  far.answer({{2, "two"}});
  EXPECT_EQ(taken(), "2=two -4 .");
  stopFollow(handle);
  kit.advance(10000);
  EXPECT_EQ(taken(), "");
}

TEST_F(Loop, AFollowComesBackWhenThereIsAnotherHandler) {
  auto first = std::make_unique<ListHandler>();
  serve(*first);
  first->texts = {{1, "one"}, {2, "two"}};
  followAll();
  EXPECT_EQ(settled(), "1=one 2=two .");
  first.reset();
  kit.advance(1000);
  EXPECT_EQ(taken(), "") << "a lost handler says nothing of the objects";
  texts.texts = {{2, "new"}};
  serve(texts);
  kit.advance(3200);
  EXPECT_EQ(taken(), "2=new -1 .");
  EXPECT_EQ(texts.subscribers, 1);
}

TEST_F(Loop, FollowsThatEndOneAnotherAreForgottenTogether) {
  struct Ends {
    ~Ends() { stopFollow(handle); }
    void* handle;
  };
  for (int i = 0; i < 20; ++i) {
    const auto ends = std::make_shared<Ends>();
    ends->handle = followAll();
    follow([this, ends](const message&) { note("called"); }, requestTo(kAddress, 0), false);
  }
  setObserver(nullptr);
  getLooper()->assemble({});
  EXPECT_EQ(taken(), "");
}

TEST_F(Loop, WhatAnObserverAnswersAtOnceArrivesInTheNextPass) {
  struct Eager : Observer {
    bool follow(void*, const message&, bool, std::function<void(const message&)> deliver) override {
      deliver({{key::objectId, 1}, {key::name, "one"}});
      deliver({});
      feed = std::move(deliver);
      return true;
    }
    bool post(const message&, std::function<void(const message&)> answer) override {
      answer({{key::count, 3}});
      answer({{key::count, 4}});
      return true;
    }
    std::function<void(const message&)> feed;
  } eager;
  setObserver(&eager);
  void* const handle = followAll(kElsewhere);
  const Post post = ask(requestTo(kElsewhere, cmd::getCount));
  eager.feed({{key::objectId, 2}, {key::name, "two"}});
  EXPECT_EQ(taken(), "");
  EXPECT_TRUE(post.pending());
  EXPECT_EQ(settled(), "1=one . 3 2=two");
  eager.feed({{key::objectId, 1}, {key::name, "new"}});
  EXPECT_EQ(taken(), "1=new");
  stopFollow(handle);
  eager.feed({});
  EXPECT_EQ(settled(), "");
  setObserver(nullptr);
}

}  // namespace
}  // namespace nv::testkit
