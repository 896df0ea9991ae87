// When a waiting request is answered, and with what.
#include "tests/support/getall_fixture.h"

using namespace test;

namespace {

using GetallPacing = GetallTest;

TEST_F(GetallPacing, AnswersAfterAHundredMillisecondsWhateverThereIs) {
  open();
  EXPECT_EQ(toldAfter(99), "");
  EXPECT_EQ(toldAfter(1), ">s1");
  EXPECT_EQ(toldAfter(1000), "");
  state().addAll({1, 2});
  EXPECT_EQ(toldAfter(1000), "") << "nobody waits";
  state().onMore = [&] { state().addAll({3}); };
  askOn(1);
  state().addAll({4});
  EXPECT_EQ(toldAfter(99), "") << "what is pending already does not hurry";
  EXPECT_EQ(toldAfter(1), "1 2 3 4 >s1");
  addItems(2);
  open();
  state(1).addAll({7});
  EXPECT_EQ(toldAfter(99), "") << "nor do items";
  EXPECT_EQ(toldAfter(1), "1 2 7 >s2");
}

TEST_F(GetallPacing, TheFirstRecordIsFollowedByTheReplyInTenMilliseconds) {
  open();
  EXPECT_EQ(toldAfter(50), "");
  state().addAll({1});
  EXPECT_EQ(toldAfter(9), "");
  state().addAll({2});
  EXPECT_EQ(toldAfter(1), "1 2 >s1");
  askOn(1);
  EXPECT_EQ(toldAfter(95), "");
  state().addAll({3});
  EXPECT_EQ(toldAfter(9), "") << "also when that is later than the hundred";
  EXPECT_EQ(toldAfter(1), "3 >s1");
  state().onMore = [&] { state().addAll({4}); };
  askOn(1);
  EXPECT_EQ(toldAfter(99), "") << "not when it came while more was asked for";
  EXPECT_EQ(toldAfter(1), "4 >s1");
}

TEST_F(GetallPacing, ASecondRequestAnswersTheFirstAndWaitsItself) {
  open({{key::maxPerReply, 2}});
  state().addAll({1});
  askOn(1, {{key::getFlags, 77}});
  EXPECT_EQ(state().asked, 2U);
  ASSERT_EQ(kit->seen().replies.size(), 1U);
  EXPECT_FALSE(kit->seen().replies[0].request.has(key::startId));
  EXPECT_EQ(told(), "1 >s1");
  EXPECT_EQ(toldAfter(99), "");
  kit->advance(1);
  ASSERT_EQ(kit->seen().replies.size(), 1U);
  EXPECT_EQ(kit->seen().replies[0].request.get(key::getFlags), 77U);
  EXPECT_EQ(told(), ">s1");
}

TEST_F(GetallPacing, MoreIsAskedForOnlyWhenThereIsRoom) {
  open({{key::maxPerReply, 2}});
  EXPECT_EQ(state().asked, 1U);
  toldAfter(100);
  state().addAll({1, 2, 3, 4, 5});
  askOn(1, {{key::maxPerReply, 2}});
  EXPECT_EQ(told(), "1 2 >s1");
  askOn(1, {{key::maxPerReply, 3}});
  EXPECT_EQ(state().asked, 2U) << "as many as fit are not full";
  state().done();
  EXPECT_EQ(told(), "3 4 5 .");
  askOn(1);
  EXPECT_EQ(told(), ".");
  EXPECT_EQ(state().asked, 2U) << "done";
}

TEST_F(GetallPacing, MoreRecordsThanTheLimitAreFull) {
  open({{key::maxPerReply, 2}});
  state().addAll({1, 2});
  EXPECT_FALSE(state().full());
  EXPECT_EQ(told(), "");
  state().addAll({3});
  EXPECT_EQ(told(), "1 2 >s1");
  state().addAll({4, 5, 6, 7, 8});
  EXPECT_FALSE(state().full()) << "without a request there is no limit";
  state().onReply = [&](const message&) { EXPECT_FALSE(state().full()) << "3 are left of 3"; };
  askOn(1, {{key::maxPerReply, 3}});
  EXPECT_EQ(told(), "3 4 5 >s1");
  state().onReply = [&](const message&) { EXPECT_TRUE(state().full()) << "2 are left of 1"; };
  askOn(1, {{key::maxPerReply, 1}});
  EXPECT_EQ(told(), "6 >s1");
  state().done();
  EXPECT_EQ(toldAfter(500), "") << "it lives as long as there are records";
  askOn(1, {{key::maxPerReply, 1}});
  EXPECT_EQ(told(), "7 >s1");
  askOn(1, {{key::maxPerReply, 0}});
  EXPECT_EQ(told(), "8 .") << "0 is no limit";
}

// A reply weighs 32 and 8 more than the bytes of each record, and 65534 at most.
TEST_F(GetallPacing, BytesMakeAReplyFull) {
  const struct {
    std::vector<std::size_t> sizes;
    bool isFull;
    const char* replies;
  } cases[] = {
      {{65494}, false, "long >s1"},
      {{65495}, true, "long >s1"},  // alone, though it is too long
      {{30000, 35486}, false, "long long >s1"},
      {{30000, 35487}, true, "long >s1 | long >s1"},
      {{101, 100000, 200, 300}, true, "long >s1 | long >s1 | long long >s1"},
      {{100000, 100000}, true, "long >s1 | long >s1"},
  };
  open();
  for (const auto& [sizes, isFull, replies] : cases) {
    SCOPED_TRACE(replies);
    toldAfter(100);
    for (const auto size : sizes) state().addSized(size);
    EXPECT_EQ(state().full(), isFull) << "without a request too";
    askOn(1);
    EXPECT_EQ(kit->seen().replies.size(), isFull ? 1U : 0U);
    std::string all = told();
    if (all.empty()) all = toldAfter(100);
    while (all.size() < std::string(replies).size()) {
      askOn(1);
      const auto next = toldAfter(100);
      ASSERT_NE(next, ">s1");
      all += " | " + next;
    }
    EXPECT_EQ(all, replies);
    EXPECT_FALSE(state().full());
  }
  askOn(1);
  state().addSized(60000);
  EXPECT_EQ(told(), "");
  state().addSized(6000);
  EXPECT_EQ(told(), "long >s1") << "a full reply does not wait";
  EXPECT_EQ(toldAfter(1000), "") << "and is sent once";
}

TEST_F(GetallPacing, DoneAnswersAtOnce) {
  open();
  state().onReply = [](message& reply) { reply.insert(key::name, "of the service"); };
  state().done();
  ASSERT_EQ(kit->seen().replies.size(), 1U);
  const auto& reply = kit->seen().replies[0].reply;
  EXPECT_EQ(reply,
            message({{key::route, Route{5}}, {key::objects, {}}, {key::name, "of the service"}}));
  EXPECT_EQ(told(), ".");
  state().done();
  EXPECT_EQ(toldAfter(99), "");

  open({}, {6});
  state(1).addAll({1, 2});
  state(1).done();
  EXPECT_EQ(told(), "1 2 .");
}

}  // namespace
