// What clients read, and what becomes of commands that make little sense.
#include "tests/support/cfgman_fixture.h"

using namespace test;

namespace {

message with(message first, const message& second) {
  first.merge(second);
  return first;
}

class CfgManCommands : public CfgManTest {
 protected:
  CfgManCommands() {
    start(Kind::unstored);
    for (const auto* name : {"a", "b", "c"}) add({{key::name, name}});
  }

  /// One page of get all as ids and the id to go on from: "1 2>3".
  std::string page(const message& fields) {
    const auto answer = ask(with(fields, command(cmd::getAll)));
    if (nv::isError(answer)) return "error";
    std::string text;
    for (const auto& flat : answer.get(key::objects))
      text += (text.empty() ? "" : " ") + std::to_string(message(flat).get(key::objectId));
    return answer.has(key::startId) ? text + ">" + std::to_string(answer.get(key::startId)) : text;
  }
};

message named(std::uint32_t id, const char* name) {
  return {{key::objectId, id}, {key::name, name}, {key::absent, 0}, {key::stateFlag, true}};
}

TEST_F(CfgManCommands, ReadsAreAnsweredAtOnce) {
  cm->defcfg = {{key::cfgFlagA, true}};
  const message count{{key::count, 3}}, defcfg{{key::defaultCfg, cm->defcfg}};
  const message config{{key::objectId, 2}, {key::name, "b"}, {key::absent, 0}};
  const struct {
    message command, answer;
  } rows[] = {
      {command(cmd::getObj, {{key::objectId, 2}}), named(2, "b")},
      {command(cmd::get, {{key::objectId, 2}}), named(2, "b")},
      {command(cmd::getObj), with(count, named(1, "a"))},
      {command(cmd::get), nv::errorMsg(err::noSuchItem, "")},  // object 0
      {command(cmd::getObj, {{key::objectId, 2}, {key::getFlags, nv::kConfigOnlyBit}}), config},
      {command(cmd::getObj, {{key::objectId, 2}, {key::getFlags, nv::kDefaultCfgBit}}),
       with(defcfg, named(2, "b"))},
      {command(cmd::getObj, {{key::objectId, 9}, {key::getFlags, nv::kDefaultCfgBit}}),
       nv::errorMsg(err::noSuchItem, "")},
      {command(cmd::getCount, {{key::getFlags, nv::kDefaultCfgBit}}), count},
      {command(cmd::getCount, {{key::objectId, 9}}), {}},
      {command(cmd::getAll, {{key::startId, 9}}), nv::errorMsg(err::noSuchPosition, "")},
  };
  for (const auto& row : rows) {
    kit->seen().clear();
    send(row.command);
    EXPECT_EQ(reply(), row.answer) << ::testing::PrintToString(row.command);
    EXPECT_EQ(line(), "reply");
  }
  // Queries from inside.
  const message absent{{key::objectId, 9}, {key::absent, 1}};
  EXPECT_EQ(cm->handler->getObject(9, nv::kDefaultFlags), absent);
  EXPECT_EQ(cm->handler->getObject(9, nv::kDefaultCfgBit), absent);
  EXPECT_EQ(cm->handler->getObject(kNoId, nv::kDefaultCfgBit), count);
  EXPECT_EQ(cm->handler->objectCount(), 3u);

  start(Kind::ordered);  // without an item
  EXPECT_EQ(ask(cmd::getObj), message({{key::count, 0}}));
  EXPECT_EQ(ask(cmd::getAll), message({{key::count, 0}, {key::objects, {}}}));
  cm->plant(false, nullptr);
  EXPECT_EQ(ask(cmd::getAll, {{key::startId, 1}}), nv::errorMsg(err::noSuchPosition, ""))
      << "it has no place yet";
}

TEST_F(CfgManCommands, PagesGoOnWhereTheLastOneEnded) {
  add({{key::dynamic, true}});
  const auto planted = cm->plant(false, nullptr).item()->id;
  add();
  ASSERT_EQ(ids(), "1 2 3 4 ~5 6");
  const struct {
    message fields;
    const char* page;
  } rows[] = {
      {{{key::maxCount, 2}}, "1 2>3"},
      {{{key::maxCount, 2}, {key::startId, 3}}, "3 4>6"},
      {{{key::maxCount, 5}}, "1 2 3 4 6"},
      {{{key::maxCount, 0}}, ">1"},
      {{{key::startId, planted}}, "6"},
      {{{key::getFlags, nv::kConfigOnlyBit}, {key::maxCount, 3}}, "1 2 3>6"},
  };
  for (const auto& row : rows) EXPECT_EQ(page(row.fields), row.page);
  EXPECT_EQ(ask(cmd::getAll, {{key::maxCount, 1}}).get(key::count), 6u);
}

TEST_F(CfgManCommands, APageEndsBeforeItGetsTooLong) {
  const auto rename = [&](std::uint32_t id, std::size_t length) {
    set(id, {{key::name, std::string(length, 'x')}});
  };
  const auto sizeOf = [&](std::uint32_t id) { return cm->getMsg(cm->find(id), 5).max_length(); };
  rename(2, 0);
  const auto room = 0xf000 - message({{key::count, 3}}).max_length() - sizeOf(1) - sizeOf(2);
  rename(2, room);
  EXPECT_EQ(page(message()), "1 2>3");  // exactly full
  rename(2, room + 4);
  EXPECT_EQ(page(message()), "1>2");
  rename(1, 100000);
  EXPECT_EQ(page(message()), "1>2");  // the first one comes however long it is
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
  EXPECT_EQ(page({{key::maxCount, 1}}), "1>2");
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

TEST_F(CfgManCommands, DefaultConfigurationIsMergedUnderAdds) {
  cm->defcfg = {{key::name, "x"}, {key::cfgFlagA, true}, {key::objectId, 70}, {key::absent, 1}};
  EXPECT_EQ(add({{key::name, "y"}}), 4u);
  EXPECT_EQ(line(), "undo y added, reply");  // stored or not
  EXPECT_EQ(
      cm->find(4)->config,
      message({{key::objectId, 4}, {key::name, "y"}, {key::cfgFlagA, true}, {key::absent, 0}}));
  set(1, {{key::cfgText, "t"}});
  EXPECT_FALSE(cm->find(1)->config.has(key::cfgFlagA));
}

TEST_F(CfgManCommands, SetsMeanWhatTheirFieldsSay) {
  const auto error = nv::errorMsg(err::noSuchObject, "");
  const struct {
    message command, reply;
    const char* ids;
  } rows[] = {
      {command(cmd::setObj, {{key::objectId, 2}, {key::absent, 1}}), {{key::objectId, 2}}, "1 3"},
      {command(cmd::setObj, {{key::objectId, 9}}), error, "1 3"},
      {command(cmd::setObj, {{key::objectId, 9}, {key::absent, 0}}), {{key::objectId, 9}}, "1 3 9"},
      {command(cmd::set, {{key::name, "z"}}), error, "1 3 9"},
      {command(cmd::set, {{key::absent, 0}}), {{key::objectId, 0}}, "0 1 3 9"},
      {command(cmd::moveObj, {{key::objectId, 8}}), error, "0 1 3 9"},
      {command(cmd::removeObj), error, "0 1 3 9"},
      {command(cmd::addObj, {{key::absent, 7}}), {{key::objectId, 2}}, "0 1 2 3 9"},
      {command(cmd::removeObj, {{key::objectId, 2}, {key::absent, 0}}),
       {{key::objectId, 2}},
       "0 1 3 9"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ask(row.command), row.reply);
    EXPECT_EQ(ids(), row.ids);
  }
}

TEST_F(CfgManCommands, AbsurdRemovalListsRemoveWhatTheyNameAndNoMore) {
  const Ids odd{0x27fe0010, 0x38fe0010, 0xffffffff, 0, 0x88ff0014, 0x20fe0009, 0x20fe0009};
  set(1, {{key::removals, odd}});
  EXPECT_EQ(cm->getMsg(cm->find(1), 5), named(1, "a"));
  set(1, {{key::removals, Ids{key::absent.uid(), key::name.uid(), 0x08fe0001}}});
  EXPECT_EQ(cm->find(1)->config, message({{key::objectId, 1}}));
  EXPECT_EQ(ids(), "1 2 3");
}

// Replaced callbacks.

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

}  // namespace
