// Undo records: exactly what they hold, and that sending one back restores everything.
#include "tests/support/cfgman_fixture.h"

using namespace test;
namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::message;

namespace {

using Uids = std::vector<std::uint32_t>;

class CfgManUndo : public CfgManTest {
 protected:
  CfgManUndo() { start(Kind::ordered); }

  const nv::testkit::Recorder::Undo& undo() const { return kit->seen().undos.at(0); }
  /// Every item's configuration along the order, and every record.
  std::string state() {
    std::ostringstream all;
    for (const auto item : *cm) item->config.dump2(all, "", 0);
    kit->settle();
    for (const auto& [id, record] : stores.records("items")) record.dump2(all << ' ' << id, "", 0);
    return all.str();
  }
};

TEST_F(CfgManUndo, HoldsWhatWasAndListsWhatWasNot) {
  start(Kind::unordered);
  const Uids none{}, name{key::name.uid()}, text{key::cfgText.uid()};
  const struct {
    message command, undo;
    const char* description;
    unsigned request;
  } rows[] = {
      {command(cmd::addObj, {{key::name, "a"}}),
       {{key::absent, 1},
        {key::removals, name},
        {key::command, cmd::removeObj},
        {key::objectId, 1}},
       "a added",
       cmd::addObj},
      {command(cmd::setObj, {{key::objectId, 1}, {key::name, "b"}, {key::cfgText, "t"}}),
       {{key::name, "a"}, {key::removals, text}, {key::command, cmd::setObj}, {key::objectId, 1}},
       "b changed",
       cmd::setObj},
      {command(cmd::setObj, {{key::objectId, 1}, {key::name, "b"}}),
       {{key::removals, none}, {key::command, cmd::setObj}, {key::objectId, 1}},
       "b changed",
       cmd::setObj},
      {command(cmd::setObj, {{key::objectId, 1}, {key::stateFlag, false}}),
       {{key::removals, none}, {key::command, cmd::setObj}, {key::objectId, 1}},
       "b changed",
       cmd::setObj},
      {command(cmd::moveObj, {{key::objectId, 1}}),
       {{key::removals, Uids{key::nextId.uid()}}, {key::command, cmd::setObj}, {key::objectId, 1}},
       "b changed",
       cmd::setObj},
      {command(cmd::setObj, {{key::objectId, 1}, {key::removals, text}}),
       {{key::cfgText, "t"},
        {key::removals, none},
        {key::command, cmd::setObj},
        {key::objectId, 1}},
       "b changed",
       cmd::setObj},
      {command(cmd::setObj, {{key::objectId, 1}, {key::absent, 2}}),
       {{key::name, "b"},
        {key::nextId, nv::kNoId},
        {key::absent, 0},
        {key::removals, none},
        {key::command, cmd::addObj},
        {key::objectId, 1}},
       "b removed",
       cmd::removeObj},
      {command(cmd::setObj, {{key::objectId, 3}, {key::absent, 0}}),
       {{key::absent, 1},
        {key::removals, none},
        {key::command, cmd::removeObj},
        {key::objectId, 3}},
       " added",
       cmd::addObj},
  };
  for (const auto& row : rows) {
    ask(row.command);
    ASSERT_EQ(kit->seen().undos.size(), 1u) << row.description;
    EXPECT_EQ(undo().undo, row.undo);
    EXPECT_EQ(undo().description, row.description);
    auto request = row.command;
    if (!request.has(key::removals)) request.insert(key::removals, {});
    request.insert(key::command, row.request)
        .insert(key::requester, undo().request.get(key::requester));
    EXPECT_EQ(undo().request, request);
  }
}

TEST_F(CfgManUndo, SentBackItRestoresConfigurationOrderAndStore) {
  for (const auto* name : {"a", "b", "c"}) add({{key::name, name}, {key::cfgText, name}});
  const message changes[] = {
      command(cmd::addObj, {{key::name, "d"}}),
      command(cmd::addObj, {{key::nextId, 1}, {key::cfgFlagA, true}}),
      command(cmd::addObj, {{key::nextId, 3}, {key::objectId, 70}}),
      command(cmd::setObj, {{key::objectId, 2},
                            {key::name, "z"},
                            {key::cfgFlagD, true},
                            {key::removals, {key::cfgText.uid()}}}),
      command(cmd::setObj, {{key::objectId, 3}, {key::defaultCfg, message({{key::name, "q"}})}}),
      command(cmd::moveObj, {{key::objectId, 1}, {key::nextId, 3}}),
      command(cmd::moveObj, {{key::objectId, 1}}),
      command(cmd::moveObj, {{key::objectId, 2}, {key::nextId, 1}}),
      command(cmd::removeObj, {{key::objectId, 1}}),
      command(cmd::removeObj, {{key::objectId, 2}}),
  };
  for (const auto& change : changes) {
    restart();
    const auto before = state();
    ask(change);
    ASSERT_NE(state(), before) << ::testing::PrintToString(change);
    ask(message(undo().undo));
    EXPECT_EQ(state(), before) << ::testing::PrintToString(change);
  }
}

TEST_F(CfgManUndo, ARecordIsNamedAsTheServiceDescribesIt) {
  cm->describe = [](const message& cfg) {
    return "item " + std::to_string(cfg.get(key::objectId));
  };
  add({{key::name, "a"}});
  EXPECT_EQ(undo().description, "item 1 added");
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(undo().description, "item 1 removed");
}

TEST_F(CfgManUndo, OnlyStoredItemsChangedByARequestAreUndone) {
  EXPECT_EQ(add({{key::dynamic, true}}), 1u);
  EXPECT_EQ(line(), "reply");
  // Whether an item is stored was decided when it was made.
  ask(cmd::setObj, {{key::objectId, 1}, {key::dynamic, false}});
  EXPECT_EQ(line(), "reply");
  add({{key::name, "s"}});
  ask(cmd::setObj, {{key::objectId, 2}, {key::dynamic, true}});
  EXPECT_EQ(line(), "undo s changed, store 2, reply");

  kit->seen().clear();
  cm->scheduleUpdate(2, {{key::name, "own"}}, {}, {}, {});
  runAll();
  EXPECT_EQ(line(), "store 2");
}

// Without a store object an item still counts as stored.
TEST_F(CfgManUndo, NeedsNoStore) {
  start(Kind::unstored);
  add({{key::name, "a"}});
  EXPECT_EQ(line(), "undo a added, reply");
}

}  // namespace
