// One update: what takes effect, in which order, what a refusal leaves, and what undoes it.
#include "tests/support/cfgman_watchers.h"

using namespace test;

namespace {

class CfgManUpdates : public CfgManTest {
 protected:
  CfgManUpdates() {
    configure = [this] {
      cm->apply = [this](auto*, auto* item, auto&, auto& keys, auto& answer) {
        std::ostringstream text;
        text << "apply " << item->id << std::hex;
        for (const auto uid : keys) text << ' ' << uid;
        kit->seen().log.push_back(text.str());
        EXPECT_EQ(cm->curItem, item);
        EXPECT_EQ(cm->curKeys, &keys);
        if (onApply) onApply(item, answer);
      };
      cm->applyItem = [](auto*, auto*, auto&, auto&) { ADD_FAILURE() << "apply goes before it"; };
    };
    start(Kind::unordered);
  }
  /// Every item's configuration along the order, and every record.
  std::string state() {
    std::ostringstream all;
    for (const auto item : *cm) item->config.dump2(all, "", 0);
    kit->settle();
    for (const auto& [id, record] : stores.records("items")) record.dump2(all << ' ' << id, "", 0);
    return all.str();
  }

  std::function<void(CfgMan::Item*, message&)> onApply;
};

TEST_F(CfgManUpdates, TakeEffectInOrder) {
  start(Kind::ordered);
  bool isPlain = true;
  cm->handler->subscribe({}, isPlain);
  const Hearer hearer(*cm, kit->seen());
  const struct {
    message command;
    const char *line, *order;  // in memory | on disk
  } steps[] = {
      {command(cmd::addObj, {{key::name, "a"}}),
       "apply 1 8fe0013 20fe0010, undo a added, notify 1, hear 1 8fe0013 20fe0010, store "
       "4294967294, store 1, reply",
       "1 | head>1 1"},
      {command(cmd::addObj, {{key::nextId, 1}}),
       "apply 2 8fe0005 8fe0013, undo  added, notify 2, hear 2 8fe0005 8fe0013, store 4294967294, "
       "store 2, reply",
       "2 1 | head>2 1 2>1"},
      {command(cmd::addObj, {{key::nextId, 99}}),
       "apply 3 8fe0005 8fe0013, undo  added, notify 3, hear 3 8fe0005 8fe0013, store 4294967294, "
       "store 3, reply",
       "3 2 1 | head>3 1 2>1 3>99"},
      {command(cmd::addObj, {{key::dynamic, true}}),
       "apply 4 fe0007 8fe0013, notify 4, hear 4 fe0007 8fe0013, reply, notify 1, hear 1 8fe0005",
       "3 2 1 4 | head>3 1 2>1 3>99"},
      {command(cmd::setObj, {{key::objectId, 1}, {key::stateFlag, false}}),
       "undo a changed, notify 1, hear 1 fe0008, reply", "3 2 1 4 | head>3 1 2>1 3>99"},
      {command(cmd::setObj, {{key::objectId, 4}, {key::replaceState, true}}),
       "notify 4, hear 4 fe0008, reply", "3 2 1 4 | head>3 1 2>1 3>99"},
      {command(cmd::moveObj, {{key::objectId, 3}}),
       "apply 3 8fe0005, undo  changed, notify 3, hear 3 8fe0005, store 4294967294, store 1, store "
       "3, reply, notify 4, hear 4 8fe0005",
       "2 1 4 3 | head>2 1>3 2>1 3"},
      {command(cmd::moveObj, {{key::objectId, 1}, {key::nextId, 2}}),
       "apply 1 8fe0005, undo a changed, notify 1, hear 1 8fe0005, store 2, store 4294967294, "
       "store 1, reply, notify 2, hear 2 8fe0005",
       "1 2 4 3 | head>1 1>2 2>3 3"},
      {command(cmd::removeObj, {{key::objectId, 1}}),
       "apply 1 8fe0013, undo a removed, notify 1, hear 1 8fe0013, store 4294967294, unstore 1, "
       "reply",
       "2 4 3 | head>2 2>3 3"},
      {command(cmd::removeObj, {{key::objectId, 3}}),
       "apply 3 8fe0013, undo  removed, notify 3, hear 3 8fe0013, store 2, unstore 3, reply, "
       "notify 4, hear 4 8fe0005",
       "2 4 | head>2 2"},
  };
  std::uint32_t added = 0;
  for (const auto& step : steps) {
    const bool isAdd = step.command.get(key::command) == cmd::addObj;
    const auto id = isAdd ? ++added : step.command.get(key::objectId);
    EXPECT_EQ(ask(step.command), message({{key::objectId, id}}));
    EXPECT_EQ(line(), step.line);
    EXPECT_EQ(ids() + " | " + stored(), step.order);
  }
  EXPECT_EQ(remove(1), nv::errorMsg(err::noSuchObject, ""));
  EXPECT_EQ(line(), "reply");
  restart();
  EXPECT_EQ(ids(), "2");
}

TEST_F(CfgManUpdates, ARecordSentBackRestoresConfigurationOrderAndStore) {
  start(Kind::ordered);
  for (const auto* name : {"a", "b", "c"}) add({{key::name, name}, {key::cfgText, name}});
  const message changes[] = {
      command(cmd::addObj, {{key::name, "d"}}),
      command(cmd::addObj, {{key::nextId, 3}, {key::objectId, 70}}),
      command(cmd::setObj, {{key::objectId, 2},
                            {key::name, "z"},
                            {key::cfgFlagD, true},
                            {key::defaultCfg, message({{key::name, "q"}})},
                            {key::removals, {key::cfgText.uid()}}}),
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
    const auto undone = kit->seen().undos.at(0).undo;
    ASSERT_NE(state(), before) << ::testing::PrintToString(change);
    restart();
    ask(undone);
    EXPECT_EQ(state(), before) << ::testing::PrintToString(change);
  }
}

TEST_F(CfgManUpdates, ItemLinksLiveAsLongAsTheirConfiguration) {
  unsigned turn = 0;
  onApply = [&](CfgMan::Item* item, message& answer) {
    EXPECT_TRUE(item->links.empty());
    EXPECT_EQ(item->about, nullptr);
    const auto name = std::to_string(++turn);
    for (const auto* part : {"", "b"}) item->links.push_back(new Part(name + part, kit->seen()));
    item->about = std::make_unique<std::vector<std::function<std::string()>>>();
    item->about->push_back([name] { return "about " + name; });
    if (turn == 3) answer = nv::failedMsg("no");
  };
  const auto rename = [&](const char* name) { return set(1, {{key::name, name}}), line(); };
  add({{key::name, "a"}});
  EXPECT_EQ(rename("b"), "apply 1 20fe0010, release 1, release 1b, undo b changed, store 1, reply");
  EXPECT_EQ(rename("c"), "apply 1 20fe0010, release 3, release 3b, reply");
  EXPECT_EQ(cm->find(1)->links.size(), 2u);
  EXPECT_EQ(rename("b"), "undo b changed, reply");  // nothing to apply
  EXPECT_EQ(rename("d"), "apply 1 20fe0010, release 2, release 2b, undo d changed, store 1, reply");
  EXPECT_EQ(ask(cmd::getObj, {{key::objectId, 1}}).get(key::about),
            std::vector<std::string>{"about 4"});
  remove(1);
  EXPECT_EQ(line(),
            "apply 1 8fe0013, release 4, release 4b, undo d removed, unstore 1, release 5, "
            "release 5b, reply");
  turn = 2;
  add();
  EXPECT_EQ(line(), "apply 1 8fe0013, release 3, release 3b, reply");
}

}  // namespace
