// The reads of a manager: its items page by page, one object, the count.
#include "tests/support/getall_fixture.h"

using namespace test;

namespace {

class GetallPaging : public GetallTest {
 protected:
  /// Makes a record of item `id` take `bytes` when it is sent.
  void pad(message& record, std::size_t bytes) {
    constexpr nv::raw_id padding{0x17};
    record.insert(padding, std::vector<unsigned char>(4));
    const auto rest = bytes - record.max_length() + 4;
    record.insert(padding, std::vector<unsigned char>(rest));
    EXPECT_EQ(record.max_length(), bytes);
  }
};

TEST_F(GetallPaging, GoesThroughTheItemsAndThenOn) {
  addItems(5);
  const struct {
    Fields fields;
    const char* reply;
    unsigned statesMade;
  } cases[] = {
      {{{key::maxCount, 2}}, "1 2 >3", 0},
      {{{key::maxCount, 2}, {key::startId, 3}}, "3 4 >5", 0},
      {{{key::maxCount, 0}}, ">1", 0},
      {{{key::startId, 6}}, "error 4", 0},
      {{{key::startId, kFirstState}}, "error 4", 0},
      {{{key::startId, 0}}, "error 4", 0},
      {{{key::maxCount, 5}}, "1 2 3 4 5 >s1", 1},  // the last page, though it is full
      {{{key::maxCount, 2}, {key::startId, 5}}, "5 >s2", 2},
      {{{key::maxCount, 4}, {key::maxPerReply, 1}}, "1 2 3 4 >5", 2},
      {{{key::maxPerReply, 2}}, "1 2 >s3", 3},
      {{{key::startId, kFirstState + 2}, {key::maxPerReply, 0}, {key::maxCount, 0}},
       "3 4 5 >s3",
       3},
  };
  for (const auto& [fields, reply, statesMade] : cases) {
    open(fields);
    if (kit->seen().replies.empty()) kit->advance(100);
    EXPECT_EQ(told(), reply);
    EXPECT_EQ(getall->made, statesMade) << reply;
  }
  open({{key::startId, kFirstState}}, {6});
  EXPECT_EQ(told(), "error 4") << "another client's";
}

TEST_F(GetallPaging, AStateIsFoundBeforeAnItemOfTheSameNumber) {
  ask(cmd::addObj, {{key::objectId, kFirstState}});
  open();
  told();
  state().addAll({7});
  askOn(1);
  EXPECT_EQ(toldAfter(100), "4294963201 7 >s1 | >s1");
  open({{key::startId, kFirstState}}, {6});
  EXPECT_EQ(toldAfter(100), "4294963201 >s1") << "who has no such state means the item";
}

// Replies hold 32 bytes and the records, 61440 at most, unless one record is longer.
TEST_F(GetallPaging, BytesEndAPage) {
  addItems(3);
  const struct {
    std::size_t first, second;
    const char* reply;
  } cases[] = {
      {30000, 31408, "long long >3"},
      {30000, 31412, "long >2"},
      {61408, 100, "long >2"},
      {70000, 100, "long >2"},
  };
  for (const auto& one : cases) {
    getall->onAdjust = [&](CfgMan::Iterator it, message& record) {
      if (it.item()->id < 3) pad(record, it.item()->id == 1 ? one.first : one.second);
    };
    open();
    EXPECT_EQ(toldAfter(100), one.reply);
  }
  getall->onAdjust = [&](CfgMan::Iterator, message& record) { pad(record, 65600); };
  open({{key::startId, 3}});
  EXPECT_EQ(told(), "long >s1") << "the last page is a full reply";
}

TEST_F(GetallPaging, TheServiceSaysWhatIsSeen) {
  addItems(3);
  auto* const planted = cm->plant(false, this).item();
  open();
  EXPECT_EQ(toldAfter(100), "1 2 3 >s1") << "what has a cookie is hidden";
  getall->onVisible = [](CfgMan::Iterator it) { return it.item()->id % 2 == 0; };
  getall->onAdjust = [](CfgMan::Iterator it, message& record) {
    record.insert(key::objectId, it.item()->id + 10);
  };
  open();
  EXPECT_EQ(toldAfter(100), "12 14 >s2") << "an absent item too";
  open({{key::maxCount, 1}});
  EXPECT_EQ(told(), "12 >4") << "the item itself is where it goes on";
  cm.reset();
  delete planted;
}

TEST_F(GetallPaging, ConfigurationAloneIsOfStoredItemsAndNotTheServices) {
  addItems(2);
  add({{key::dynamic, true}});
  told();
  getall->onVisible = [](CfgMan::Iterator) { return ADD_FAILURE(), true; };
  getall->onAdjust = [](CfgMan::Iterator, message&) { ADD_FAILURE(); };
  open({{key::getFlags, nv::kConfigOnlyBit}});
  EXPECT_EQ(toldAfter(100), "1 2 >s1");
  const auto one = ask(cmd::getObj, {{key::objectId, 3}, {key::getFlags, nv::kConfigOnlyBit}});
  EXPECT_EQ(one.get(key::objectId), 3U);
  EXPECT_FALSE(one.has(key::stateFlag));
}

TEST_F(GetallPaging, FollowsTheUsersOrderThoughItemsGoWhileTheyAreLookedAt) {
  start(Kind::ordered);
  getall->setCm(cm.get());
  addItems(4);
  ask(cmd::moveObj, {{key::objectId, 4}, {key::nextId, 1}});
  told();
  open({{key::startId, cm->plant(false, nullptr).item()->id}});
  EXPECT_EQ(told(), "error 4") << "it has no place";
  open({{key::maxCount, 2}});
  EXPECT_EQ(told(), "4 1 >2");
  getall->onVisible = [&](CfgMan::Iterator it) {
    if (it.item()->id == 2) {
      for (const auto id : {2U, 3U}) cm->scheduleUpdate(id, {{key::absent, 1}}, {}, {}, {});
      runAll();
    }
    return true;
  };
  open();
  EXPECT_EQ(toldAfter(100), "4 1 >s1");
}

TEST_F(GetallPaging, AnswersForOneObjectAndTheCount) {
  addItems(1);
  const auto error = nv::errorMsg(err::noSuchObject, "");
  const auto getOne = [&](std::uint32_t id) { return ask(cmd::getObj, {{key::objectId, id}}); };
  EXPECT_EQ(getOne(1), cm->getMsg(cm->find(1), nv::kDefaultFlags));
  EXPECT_EQ(getOne(2), error);
  EXPECT_EQ(ask(cmd::getObj), error);

  Ids missing;
  getall->onAdjust = [](CfgMan::Iterator, message& record) { record.insert(key::name, "seen"); };
  getall->onMissing = [&](std::uint32_t id) {
    missing.push_back(id);
    return message{{key::objectId, id}, {key::absent, id == 8 ? 1U : 0U}};
  };
  EXPECT_EQ(getOne(1).get(key::name), "seen");
  EXPECT_FALSE(getall->handleCmGet(1, nv::kConfigOnlyBit).has(key::name));
  EXPECT_EQ(getOne(7), message({{key::objectId, 7}, {key::absent, 0}}));
  EXPECT_EQ(getOne(8), error);
  EXPECT_EQ(ask(cmd::getObj), message({{key::objectId, kNoId}, {key::absent, 0}}));
  EXPECT_EQ(missing, (Ids{7, 8, kNoId}));
  EXPECT_EQ(cm->handler->getObject(9, 5), message({{key::objectId, 9}, {key::absent, 0}}));

  EXPECT_EQ(ask(cmd::getCount), message({{key::count, kNoId}}));
  getall->onCount = [](const message& request) { return request.empty() ? 4U : 3U; };
  EXPECT_EQ(ask(cmd::getCount), message({{key::count, 3}}));
  EXPECT_EQ(cm->handler->objectCount(), 4U);
}

TEST_F(GetallPaging, LeavesTheRestToTheManager) {
  EXPECT_EQ(ask(cmd::get), nv::errorMsg(err::badCommand, ""));
  EXPECT_EQ(ask(cmd::addObj, {{key::name, "a"}}), message({{key::objectId, 1}}));
  EXPECT_EQ(set(9, {}), nv::errorMsg(err::noSuchObject, ""));
  EXPECT_EQ(ask(0x1234), nv::errorMsg(err::badCommand, ""));
  EXPECT_FALSE(getall->handleCmd(command(cmd::addObj)));
}

}  // namespace
