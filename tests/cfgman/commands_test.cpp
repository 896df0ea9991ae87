// What clients read, what becomes of commands that make little sense, names and ids.
#include "tests/support/cfgman_fixture.h"

using namespace test;

namespace {

class CfgManCommands : public CfgManTest {
 protected:
  CfgManCommands() {
    start(Kind::unstored);
    for (const auto* name : {"a", "b", "c"}) add({{key::name, name}});
  }
};

TEST_F(CfgManCommands, ReadsAreAnsweredAtOnce) {
  const message b{{key::objectId, 2}, {key::name, "b"}, {key::absent, 0}, {key::stateFlag, true}};
  const struct {
    message command, answer;
  } rows[] = {
      {command(cmd::getObj, {{key::objectId, 2}}), b},
      {command(cmd::getAll, {{key::startId, 2}, {key::maxCount, 1}}),
       {{key::count, 3}, {key::objects, {b}}, {key::startId, 3}}},
      {command(cmd::getCount), {{key::count, 3}}},
      {command(cmd::get), nv::errorMsg(err::noSuchItem, "")},
  };
  for (const auto& row : rows) {
    kit->seen().clear();
    send(row.command);
    EXPECT_EQ(reply(), row.answer) << ::testing::PrintToString(row.command);
    EXPECT_EQ(line(), "reply");
  }
  // Queries from inside.
  cm->defcfg = {{key::cfgFlagA, true}};
  const message absent{{key::objectId, 9}, {key::absent, 1}};
  EXPECT_EQ(cm->handler->getObject(9, nv::kDefaultCfgBit), absent);
  EXPECT_EQ(cm->handler->getObject(kNoId, nv::kDefaultCfgBit), message({{key::count, 3}}));
  EXPECT_EQ(cm->handler->objectCount(), 3u);
}

TEST_F(CfgManCommands, APageEndsBeforeItGetsTooLong) {
  const auto onPage = [&](std::uint32_t id, std::size_t length) {
    set(id, {{key::name, std::string(length, 'x')}});
    return ask(cmd::getAll).get(key::objects).size();
  };
  const auto sizeOf = [&](std::uint32_t id) { return cm->getMsg(cm->find(id), 5).max_length(); };
  EXPECT_EQ(onPage(2, 0), 3u);
  const auto room = 0xf000 - message({{key::count, 3}}).max_length() - sizeOf(1) - sizeOf(2);
  EXPECT_EQ(onPage(2, room), 2u) << "exactly full";
  EXPECT_EQ(onPage(2, room + 4), 1u);
  EXPECT_EQ(onPage(1, 100000), 1u) << "the first one comes however long it is";
}

TEST_F(CfgManCommands, HooksExtendAnObjectInTheirOrder) {
  std::string asked;
  cm->fillMsg = [](message& out, CfgMan*, std::uint32_t id, std::uint32_t) {
    out.append(key::about, "fill " + std::to_string(id) + " " + out.get(key::name));
  };
  cm->fillItemMsg = [&](CfgMan*, CfgMan::Item* item, message& out, std::uint32_t flags) {
    out.append(key::about, "item, flags " + std::to_string(flags)).insert(key::objectId, 77);
    asked += std::to_string(item->id) + " ";
  };
  cm->find(2)->about = std::make_unique<std::vector<std::function<std::string()>>>();
  for (const auto* text : {"text", "more"}) cm->find(2)->about->push_back([text] { return text; });

  const auto full = ask(cmd::getObj, {{key::objectId, 2}, {key::getFlags, 6}});
  EXPECT_EQ(full.get(key::about),
            (std::vector<std::string>{"fill 2 b", "item, flags 6", "text", "more"}));
  EXPECT_EQ(full.get(key::objectId), 2u);
  const auto bare = ask(cmd::getObj, {{key::objectId, 2}, {key::getFlags, nv::kConfigOnlyBit | 6}});
  EXPECT_FALSE(bare.has(key::about));

  asked.clear();
  ask(cmd::getAll, {{key::maxCount, 1}});
  EXPECT_EQ(asked, "1 2 ");  // the one that begins the next page was made, too
}

TEST_F(CfgManCommands, CodesThatAreNoneChangeNothing) {
  // Some of them are a multiple of 32 away from one that is known.
  for (const unsigned code : {0u, 1u, 2u, 0xfe0001u, 0xfe0008u, 0xfe000cu, 0xfe0022u, 0xfe0023u,
                              0xfe0025u, 0xfe002eu, 0xfdffe5u, 0xfdffe2u, 0xffffffffu, 0xff0005u}) {
    EXPECT_EQ(ask(code, {{key::objectId, 2}, {key::name, "z"}, {key::absent, 1}}),
              nv::errorMsg(err::badCommand, ""))
        << std::hex << code;
    EXPECT_EQ(ids(), "1 2 3");
    EXPECT_EQ(cm->find(2)->config.get(key::name), "b");
  }
}

TEST_F(CfgManCommands, AManagerWithoutAHandlerTakesChangesAndSaysNothing) {
  CfgMan quiet(&tasks);
  kit->seen().clear();
  for (const unsigned code : {cmd::getObj, cmd::getAll, 0xfe0022u, cmd::addObj, cmd::removeObj})
    quiet.doCmd(nullptr, command(code, {{key::requester, {1}}, {key::name, "q"}}));
  runAll();
  ASSERT_NE(quiet.find(1), nullptr);
  EXPECT_EQ(quiet.find(1)->config.get(key::name), "q");
  EXPECT_EQ(line(), "");
}

TEST_F(CfgManCommands, AReplacedDoGetAnswersInItsOwnTime) {
  std::string asked;
  message answer = CfgMan::suppressReply();
  cm->doGet = [&](CfgMan*, std::uint32_t id, std::uint32_t flags, const message& cmd) {
    asked = std::to_string(id) + " " + std::to_string(flags) + (cmd.empty() ? " inside" : "");
    return answer;
  };
  EXPECT_EQ(answer, message({{key::replyMarker, kNoId}}));
  ask(cmd::get);
  EXPECT_EQ(asked, "0 5");
  EXPECT_EQ(line(), "");
  answer = {{key::replyMarker, 1}, {key::count, 12}};
  EXPECT_EQ(ask(cmd::getObj, {{key::getFlags, 9}}), answer);
  EXPECT_EQ(asked, "4294967295 9");
  EXPECT_EQ(cm->handler->objectCount(), 12u);
  EXPECT_EQ(asked, "4294967295 0 inside");
  answer = message();
  EXPECT_EQ(cm->handler->objectCount(), kNoId);
}

using CfgManNames = CfgManTest;

TEST_F(CfgManNames, AreOneAboveTheHighest) {
  const struct {
    std::string prefix;
    std::vector<std::string> names;
    std::string expected;
  } cases[] = {
      {"vlan", {"vlan1", "vlan00"}, "vlan101"},
      {"vlan", {"vlan-3", "vlan 4", "vlan\xd9\xa1", "Vlan9", "vlan4"}, "vlan5"},
      {"vlan", {"vlan4294967295"}, "vlan4294967296"},
      {"vlan", {"vlan" + std::string(100, '9')}, "vlan1" + std::string(100, '0')},
      {"eth9", {"eth99"}, "eth010"},
      {"99", {"999"}, "0010"},
  };
  for (const auto& [prefix, names, expected] : cases) {
    startEmpty(Kind::ordered);
    for (const auto& name : names) add({{key::name, name}});
    cm->namePrefix = prefix;
    EXPECT_EQ(cm->find(add())->config.get(key::name), expected);
  }
}

TEST_F(CfgManNames, AReplacedAllocatorGivesNoIdTwice) {
  set(1, {{key::name, "refused"}});  // even this one makes it
  ASSERT_NE(cm->alloc, nullptr);
  EXPECT_EQ(cm->alloc->min(), 1u);
  EXPECT_EQ(cm->alloc->max(), 0xfffffffdu);
  for (const auto id : {1u, 2u, 3u}) EXPECT_EQ(add(), id);
  cm->setAllocator(2, 4);
  EXPECT_EQ(cm->allocMin, 2u);
  EXPECT_EQ(cm->allocMax, 4u);
  EXPECT_EQ(cm->plant(false, nullptr).item()->id, 4u);
  EXPECT_EQ(ask(cmd::addObj), nv::errorMsg(err::idInUse, ""));
}

}  // namespace
