/// Follows: the whole set, then its changes, whatever happens at either end.

#include "platform/follow.h"

#include <gtest/gtest.h>

#include "platform/observer.h"
#include "platform/post.h"
#include "tests/platform/loop_fixture.h"

namespace nv::testkit {
namespace {

/// What a follow delivers, one word each: "3=three", "-3" for an object that is gone, "." for the
/// end mark.
std::string word(const message& msg) {
  if (msg.empty()) return ".";
  const auto id = std::to_string(msg.get(key::objectId, 999));
  return msg.get(key::absent) ? "-" + id : id + "=" + msg.get(key::name);
}

TEST_F(Loop, AFollowDeliversTheWholeSetThenTheMarkThenChanges) {
  ListHandler texts;
  getLooper()->addHandler(7, &texts);
  for (std::uint32_t id = 1; id <= 5; ++id) texts.texts[id] = std::to_string(id);
  void* const handle = follow([&](const message& msg) { note(word(msg)); }, requestTo(7, 0), false);
  EXPECT_EQ(taken(), "");
  kit.settle();
  EXPECT_EQ(taken(), "1=1 2=2 3=3 4=4 5=5 .");
  texts.put(3, "new");
  kit.settle();
  EXPECT_EQ(taken(), "3=new");
  texts.texts.erase(4);
  texts.notifyChange(4, true, nullptr, {});
  kit.settle();
  EXPECT_EQ(taken(), "-4");
  stopFollow(handle);
  texts.put(3, "unheard");
  kit.settle();
  EXPECT_EQ(taken(), "");
  EXPECT_EQ(texts.subscribers, 0);
  stopFollow(nullptr);
}

TEST_F(Loop, AFollowHearsOfAChangeOnlyWhenItIsOnDisk) {
  ListHandler texts("texts");
  getLooper()->addHandler(7, &texts);
  texts.texts[1] = "one";
  kit.engine().hold();
  texts.put(2, "two");
  void* const handle = follow([&](const message& msg) { note(word(msg)); }, requestTo(7, 0), false);
  kit.settle();
  EXPECT_EQ(taken(), "");
  kit.engine().commit();
  kit.settle();
  EXPECT_EQ(taken(), "1=one 2=two .");
  texts.put(1, "new");
  kit.settle();
  EXPECT_EQ(taken(), "");
  kit.engine().release();
  kit.settle();
  EXPECT_EQ(taken(), "1=new");
  stopFollow(handle);
}

TEST_F(Loop, AFollowMayEndItselfAtAnyOfItsMessages) {
  ListHandler texts;
  getLooper()->addHandler(7, &texts);
  for (std::uint32_t id = 1; id <= 3; ++id) texts.texts[id] = "x";
  for (int last = 1; last <= 5; ++last) {
    void* handle = nullptr;
    int heard = 0;
    handle = follow(
        [&](const message&) {
          if (++heard == last) stopFollow(handle);
        },
        requestTo(7, 0), false);
    kit.settle();
    texts.put(1, "changed");
    kit.settle();
    texts.put(2, "changed");
    kit.settle();
    EXPECT_EQ(heard, last);
    EXPECT_EQ(texts.subscribers, 0);
  }
}

TEST_F(Loop, AFollowThatEndsAtAnyMomentLeavesNoSubscription) {
  ListHandler texts;
  getLooper()->addHandler(7, &texts);
  for (int passes = 0; passes < 6; ++passes) {
    void* const handle = follow([](const message&) {}, requestTo(7, 0), false);
    for (int i = 0; i < passes; ++i) kit.pass();
    stopFollow(handle);
    kit.settle();
    EXPECT_EQ(texts.subscribers, 0) << "after " << passes << " passes";
  }
}

TEST_F(Loop, AnObjectThatGoesWhileTheSetIsReadIsNotLost) {
  struct Shrinking : ListHandler {
    message cmdGetAll(const message& request, std::uint32_t startId, std::uint32_t count) override {
      auto reply = ListHandler::cmdGetAll(request, startId, count);
      if (startId == kNoId) {
        texts.erase(3);  // the one with which the next page begins
        notifyChange(3, true, nullptr, {});
      }
      return reply;
    }
  } texts;
  getLooper()->addHandler(7, &texts);
  for (std::uint32_t id = 1; id <= 4; ++id) texts.texts[id] = std::to_string(id);
  std::map<std::uint32_t, std::string> copy;
  bool complete = false;
  void* const handle = follow(
      [&](const message& msg) {
        if (msg.empty()) return void(complete = true);
        if (msg.get(key::absent))
          copy.erase(msg.get(key::objectId));
        else
          copy[msg.get(key::objectId)] = msg.get(key::name);
      },
      requestTo(7, 0), false);
  kit.settle();
  EXPECT_FALSE(complete) << "it waits before it reads again";
  kit.advance(100);
  EXPECT_TRUE(complete);
  EXPECT_EQ(copy, texts.texts);
  stopFollow(handle);
}

TEST_F(Loop, ASetWhosePagesLeadInACircleIsReadAgainLaterAndEverMoreRarely) {
  struct Circle : ListHandler {
    message cmdGetAll(const message& request, std::uint32_t startId, std::uint32_t count) override {
      ++pages;
      auto reply = ListHandler::cmdGetAll(request, startId, count);
      if (circular && !reply.has(key::startId)) reply.insert(key::startId, 3);
      return reply;
    }
    bool circular = true;
    int pages = 0;
  } texts;
  getLooper()->addHandler(7, &texts);
  for (std::uint32_t id = 1; id <= 4; ++id) texts.texts[id] = std::to_string(id);
  void* const handle = follow([&](const message& msg) { note(word(msg)); }, requestTo(7, 0), false);
  for (int i = 0; i < 100; ++i) kit.pass();
  EXPECT_EQ(texts.pages, 2);
  kit.advance(60000);
  EXPECT_LT(texts.pages, 60);
  EXPECT_EQ(taken().find('.'), std::string::npos);
  texts.circular = false;
  kit.advance(3200);
  EXPECT_EQ(taken(), "1=1 2=2 3=3 4=4 .");
  EXPECT_EQ(texts.subscribers, 1);
  stopFollow(handle);
}

TEST_F(Loop, TheOneObjectOfAHolderIsFollowedAsObjectZero) {
  struct Holder : Handler {
    message cmdGet(const message&) override { return getObject(kNoId, 5); }
    message getObject(std::uint32_t, std::uint32_t) override { return {{key::name, text}}; }
    std::string text = "one";
  } holder;
  getLooper()->addHandler(7, &holder);
  void* const handle = follow([&](const message& msg) { note(word(msg)); }, requestTo(7, 0), false);
  kit.settle();
  holder.text = "two";
  holder.notifyChange(kNoId, false, nullptr, {});
  kit.settle();
  EXPECT_EQ(taken(), "0=one . 0=two");
  stopFollow(handle);
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
    for (int i = 0; i < 2; ++i) {
      kit_.settle();
      for (const auto& request : peer->received()) {
        message reply{{key::frameKind, 1}, {key::tag, request.get(key::tag)}};
        if (request.get(key::command) == cmd::subscribe) subscription = request.get(key::tag);
        if (request.get(key::command) == cmd::getAll) {
          std::vector<flat_message> page;
          for (const auto& [id, text] : objects)
            page.push_back(message{{key::objectId, id}, {key::name, text}}.flat());
          reply.insert(key::objects, page);
        }
        peer->send(reply);
      }
    }
    kit_.settle();
  }

  std::unique_ptr<BusPeer> peer;
  std::uint32_t subscription = 0;  // the number of the last request to subscribe

 private:
  Kit& kit_;
};

TEST_F(Loop, AFollowComesBackAfterALostConnectionAndTellsWhatVanished) {
  void* const handle =
      follow([&](const message& msg) { note(word(msg)); }, requestTo(kElsewhere, 0), false);
  kit.advance(250);  // nobody there yet
  EXPECT_EQ(taken(), "");
  kit.serve(kElsewhere);
  kit.advance(3200);
  FollowedPeer far(kit);
  far.answer({{1, "one"}, {2, "two"}, {3, "three"}});
  EXPECT_EQ(taken(), "1=one 2=two 3=three .");
  far.peer->close();
  kit.settle();
  EXPECT_EQ(taken(), "") << "a lost connection says nothing of the objects";
  kit.advance(200);
  far.answer({{2, "two"}, {4, "four"}});
  EXPECT_EQ(taken(), "2=two 4=four -1 -3 .");
  stopFollow(handle);
  kit.advance(10000);
  EXPECT_EQ(taken(), "");
}

TEST_F(Loop, AFollowComesBackWhenThereIsAnotherHandler) {
  auto texts = std::make_unique<ListHandler>();
  getLooper()->addHandler(7, texts.get());
  texts->texts = {{1, "one"}, {2, "two"}};
  void* const handle = follow([&](const message& msg) { note(word(msg)); }, requestTo(7, 0), false);
  kit.settle();
  EXPECT_EQ(taken(), "1=one 2=two .");
  texts.reset();
  kit.advance(1000);
  EXPECT_EQ(taken(), "") << "a lost handler says nothing of the objects";
  ListHandler next;
  next.texts = {{2, "new"}};
  getLooper()->addHandler(7, &next);
  kit.advance(3200);
  EXPECT_EQ(taken(), "2=new -1 .");
  EXPECT_EQ(next.subscribers, 1);
  stopFollow(handle);
}

TEST_F(Loop, FollowsThatEndOneAnotherAreForgottenTogether) {
  struct Ends {
    ~Ends() { stopFollow(handle); }
    void* handle;
  };
  for (int i = 0; i < 20; ++i) {
    const auto ends = std::make_shared<Ends>();
    ends->handle = follow([](const message&) {}, requestTo(7, 0), false);
    follow([this, ends](const message&) { note("called"); }, requestTo(7, 0), false);
  }
  setObserver(nullptr);
  getLooper()->assemble({});
  EXPECT_EQ(taken(), "");
}

TEST_F(Loop, AFollowSubscribesAnewWhenItsSubscriptionIsEndedOverTheBus) {
  kit.serve(kElsewhere);
  void* const handle =
      follow([&](const message& msg) { note(word(msg)); }, requestTo(kElsewhere, 0), false);
  kit.settle();
  FollowedPeer far(kit);
  far.answer({{1, "one"}});
  EXPECT_EQ(taken(), "1=one .");
  far.peer->send({{key::frameKind, 3}, {key::tag, far.subscription}});
  kit.advance(200);
  far.answer({{2, "two"}});
  EXPECT_EQ(taken(), "2=two -1 .");
  stopFollow(handle);
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
  void* const handle =
      follow([&](const message& msg) { note(word(msg)); }, requestTo(kElsewhere, 0), true);
  auto request = requestTo(kElsewhere, cmd::getCount);
  const Post post(
      request, [&](const message& reply) { note(std::to_string(reply.get(key::count))); }, 1000);
  eager.feed({{key::objectId, 2}, {key::name, "two"}});
  EXPECT_EQ(taken(), "");
  EXPECT_TRUE(post.pending());
  kit.settle();
  EXPECT_EQ(taken(), "1=one . 3 2=two");
  eager.feed({{key::objectId, 1}, {key::name, "new"}});
  EXPECT_EQ(taken(), "1=new");
  setObserver(nullptr);
  stopFollow(handle);
}

TEST_F(Loop, ATestMayAnswerFollowsAndPostsItself) {
  kit.seen().answersFollows = kit.seen().answersPosts = true;
  void* const handle =
      follow([&](const message& msg) { note(word(msg)); }, requestTo(kElsewhere, 0), true);
  auto request = requestTo(kElsewhere, cmd::getCount);
  const Post post(
      request, [&](const message&) { note("answer"); }, 1000);
  auto& seen = kit.seen();
  ASSERT_EQ(seen.follows.size(), 1U);
  EXPECT_TRUE(seen.follows[0].wait);
  seen.follows[0].deliver({});
  seen.posts[0].answer({});
  seen.posts[0].answer({});
  EXPECT_EQ(taken(), ". answer");
  stopFollow(handle);
  seen.follows[0].deliver({});
  EXPECT_EQ(taken(), "");
  EXPECT_TRUE(seen.follows[0].stopped);
}

}  // namespace
}  // namespace nv::testkit
