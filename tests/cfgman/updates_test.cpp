// One update: what takes effect, in which order, and what a refusal leaves.
#include <optional>

#include "tests/support/cfgman_watchers.h"

using namespace test;
namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::message;

namespace {

class CfgManUpdates : public CfgManTest {
 protected:
  CfgManUpdates() { logApply(); }

  void logApply() {
    cm->apply = [this](CfgMan*, CfgMan::Item* item, message& cfg, vset<unsigned>& keys,
                       message& answer) {
      std::ostringstream text;
      text << "apply " << item->id << std::hex;
      for (const auto uid : keys) text << ' ' << uid;
      kit->seen().log.push_back(text.str());
      if (onApply) onApply(item, cfg, keys, answer);
    };
  }
  void update(message cfg, message state, vset<unsigned> keys, message request = {}) {
    kit->seen().clear();
    cm->scheduleUpdate(1, std::move(cfg), std::move(state), std::move(keys), std::move(request));
    runAll();
  }
  /// What refusals must leave alone.
  std::string everything() {
    std::ostringstream all;
    for (const auto [id, item] : cm->items) {
      item->config.dump2(all, "", 0);
      item->state.dump2(all, "", 0);
    }
    return all.str() + std::to_string(cm->alloc ? cm->alloc->unused() : 0) + " " + stored();
  }

  std::function<void(CfgMan::Item*, message&, vset<unsigned>&, message&)> onApply;
};

constexpr auto refuse = [](CfgMan::Item*, message&, vset<unsigned>&, message& answer) {
  answer = nv::failedMsg("no");
};

message refusal(std::uint32_t id) { return nv::failedMsg("no").insert(key::objectId, id); }

TEST_F(CfgManUpdates, TakeEffectInOrder) {
  bool isPlain = true;
  cm->handler->subscribe({}, isPlain);
  Hearer hearer(*cm, kit->seen());
  ask(cmd::addObj, {{key::name, "a"}});
  EXPECT_EQ(line(),
            "apply 1 8fe0013 20fe0010, undo a added, notify 1, hear 1 8fe0013 20fe0010, store 1, "
            "reply");
  ask(cmd::setObj, {{key::objectId, 1}, {key::name, "a"}});
  EXPECT_EQ(line(), "undo a changed, hear 1, reply");
  ask(cmd::setObj, {{key::objectId, 1}, {key::stateFlag, false}});
  EXPECT_EQ(line(), "undo a changed, notify 1, hear 1 fe0008, reply");
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(line(), "apply 1 8fe0013, undo a removed, notify 1, hear 1 8fe0013, unstore 1, reply");
  EXPECT_EQ(cm->find(1), nullptr);
}

TEST_F(CfgManUpdates, ObserversSeeBothSidesAndTheNewOneInTheItem) {
  add({{key::name, "a"}});
  Hearer hearer(*cm, kit->seen());
  ask(cmd::setObj, {{key::objectId, 1}, {key::name, "b"}, {key::stateFlag, false}});
  EXPECT_EQ(hearer.oldCfg.get(key::name), "a");
  EXPECT_EQ(hearer.newCfg.get(key::name), "b");
  EXPECT_EQ(hearer.inItem, hearer.newCfg);
  EXPECT_TRUE(hearer.oldState.get(key::stateFlag));
  EXPECT_FALSE(hearer.newState.get(key::stateFlag));
  EXPECT_EQ(line(),
            "apply 1 fe0008 20fe0010, undo b changed, hear 1 fe0008 20fe0010, store 1, reply");
  ask(cmd::addObj);
  EXPECT_EQ(hearer.oldCfg, message({{key::absent, 1}}));
  EXPECT_EQ(hearer.oldState, message({{key::stateFlag, true}}));
  ask(cmd::removeObj, {{key::objectId, 2}});
  EXPECT_EQ(hearer.newCfg.get(key::absent), 1u);
}

TEST_F(CfgManUpdates, WhatIsStoredIsTheConfiguration) {
  ask(cmd::addObj, {{key::name, "a"}, {key::stateFlag, false}, {key::startId, 4}});
  const message record{{key::objectId, 1}, {key::name, "a"}, {key::absent, 0}};
  ASSERT_EQ(kit->seen().storeOps.size(), 1u);
  EXPECT_EQ(kit->seen().storeOps[0].record, record);
  EXPECT_EQ(cm->find(1)->state, message({{key::stateFlag, false}}));
  restart();
  EXPECT_EQ(cm->find(1)->config, record);
  EXPECT_EQ(cm->find(1)->state, message({{key::stateFlag, true}}));
  EXPECT_EQ(line(), "");
}

TEST_F(CfgManUpdates, KeysOfAnUpdateReachApplyButWhatItChangesThenIsNotKept) {
  add({{key::name, "a"}});
  Hearer hearer(*cm, kit->seen());
  onApply = [](auto*, message& cfg, vset<unsigned>& keys, auto&) {
    cfg.insert(key::cfgText, "told");
    keys.insert(0x77);
  };
  update({}, {}, {0x08000001});
  EXPECT_EQ(line(), "apply 1 8000001, hear 1 77 8000001");
  EXPECT_EQ(hearer.newCfg.get(key::cfgText), "told");
  EXPECT_FALSE(cm->find(1)->config.has(key::cfgText));
  // A change of configuration beside them keeps it.
  update({{key::name, "b"}}, {}, {0x08000001});
  EXPECT_EQ(line(), "apply 1 8000001 20fe0010, hear 1 77 8000001 20fe0010, store 1");
  kit->settle();
  EXPECT_EQ(stores.get("items", 1), cm->find(1)->config);
  EXPECT_EQ(cm->find(1)->config.get(key::cfgText), "told");
}

TEST_F(CfgManUpdates, OriginTellsWhoAsked) {
  const auto asked = [](std::optional<std::uint32_t> rights) {
    message request{{key::command, cmd::setObj}, {key::requester, {7}}};
    if (rights) request.insert(key::rights, *rights);
    return request;
  };
  const struct {
    message request;
    std::uint32_t origin;
    const char* effects;
  } rows[] = {
      {asked({}), CfgMan::kFromSystem, "undo x changed, store 1, reply"},
      {asked(0x80000000), CfgMan::kFromSystem, "undo x changed, store 1, reply"},
      {asked(0xffffffff), CfgMan::kFromSystem, "undo x changed, store 1, reply"},
      {asked(0), CfgMan::kFromUser, "undo x changed, store 1, reply"},
      {asked(0x7fffffff), CfgMan::kFromUser, "undo x changed, store 1, reply"},
      {{{key::requester, {7}}}, CfgMan::kFromSystem, "undo x changed, store 1, reply"},
      {message(), CfgMan::kFromService, "store 1"},
      {{{key::rights, 0}}, CfgMan::kFromService, "store 1"},
      {{{key::command, 0}}, CfgMan::kFromStore, ""},
      {command(cmd::setObj, {{key::rights, 0}}), CfgMan::kFromStore, ""},
  };
  add({{key::name, "x"}});
  cm->apply = nullptr;
  unsigned turn = 0;
  for (const auto& row : rows) {
    update({{key::cfgText, std::to_string(++turn)}}, {}, {}, row.request);
    EXPECT_EQ(cm->updateOrigin, row.origin) << turn;
    EXPECT_EQ(line(), row.effects) << turn;
    EXPECT_EQ(cm->find(1)->config.get(key::cfgText), std::to_string(turn));
  }
}

TEST_F(CfgManUpdates, RepliesGoTheWayTheRequestCame) {
  const nv::testkit::Requester who{{9, 4}, {}};
  onApply = [](auto*, auto&, auto&, message& answer) {
    EXPECT_EQ(answer, message({{key::route, {9, 4}}}));
    answer.insert(key::cfgText, "done");
  };
  EXPECT_EQ(ask(cmd::addObj, {{key::name, "a"}}, who),
            message({{key::objectId, 1}, {key::cfgText, "done"}}));
  EXPECT_EQ(kit->seen().replies[0].reply.get(key::route), who.route);
  onApply = refuse;
  EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}, {key::name, "b"}}, who), refusal(1));
  EXPECT_EQ(kit->seen().replies[0].reply.get(key::route), who.route);
  EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 5}}, who), nv::errorMsg(err::noSuchObject, ""));
  EXPECT_EQ(kit->seen().replies[0].reply.get(key::route), who.route);
}

TEST_F(CfgManUpdates, ARefusedChangeLeavesEverythingAsItWas) {
  add({{key::name, "a"}});
  std::optional<Hearer> hearer(std::in_place, *cm, kit->seen());
  int cookie = 0;
  const std::unique_ptr<CfgMan::Item> mine(cm->plant(false, &cookie).item());
  const auto planted = mine->id;
  const auto before = everything();
  onApply = refuse;
  const struct {
    message command;
    std::uint32_t id;
  } rows[] = {
      {command(cmd::addObj, {{key::name, "n"}}), 3},
      {command(cmd::addObj, {{key::objectId, 70}}), 70},
      {command(cmd::setObj, {{key::objectId, 1}, {key::name, "z"}, {key::stateFlag, false}}), 1},
      {command(cmd::removeObj, {{key::objectId, 1}}), 1},
      {command(cmd::addObj, {{key::objectId, planted}, {key::stateFlag, false}}), planted},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ask(row.command), refusal(row.id));
    EXPECT_EQ(line().find("undo"), std::string::npos);
    EXPECT_EQ(line().find("hear"), std::string::npos);
    EXPECT_EQ(everything(), before) << row.id;
  }
  hearer.reset();
  stop();
}

TEST_F(CfgManUpdates, ARefusalByApplyItemTakesTheNewConfigurationOutAgain) {
  add({{key::name, "a"}});
  cm->apply = nullptr;
  bool isRefused = true;
  cm->applyItem = [&](CfgMan* manager, CfgMan::Item* item, vset<unsigned>& keys, message& answer) {
    EXPECT_EQ(item->config.get(key::name), "b");
    EXPECT_EQ(manager->curItem, item);
    EXPECT_EQ(manager->curKeys, &keys);
    item->config.insert(key::cfgText, "added");
    if (isRefused) answer = nv::failedMsg("no");
  };
  EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}, {key::name, "b"}}), refusal(1));
  EXPECT_EQ(cm->find(1)->config.get(key::name), "a");
  EXPECT_FALSE(cm->find(1)->config.has(key::cfgText));
  EXPECT_EQ(cm->curItem, nullptr);
  EXPECT_EQ(cm->curKeys, nullptr);

  isRefused = false;
  ask(cmd::setObj, {{key::objectId, 1}, {key::name, "b"}});
  EXPECT_EQ(cm->find(1)->config.get(key::cfgText), "added");
  EXPECT_EQ(stored(), "1");
  EXPECT_EQ(stores.get("items", 1), cm->find(1)->config);
}

TEST_F(CfgManUpdates, ApplyGoesBeforeApplyItem) {
  cm->applyItem = [this](auto*, auto*, auto&, auto&) { kit->seen().log.push_back("applyItem"); };
  onApply = [this](CfgMan::Item* item, auto&, auto&, auto&) {
    EXPECT_EQ(cm->curItem, item);
    EXPECT_EQ(item->config, message({{key::absent, 1}}));
    EXPECT_FALSE(item->state.get(key::stateFlag));  // merged before
  };
  add({{key::stateFlag, false}});
  EXPECT_EQ(line(), "apply 1 fe0008 8fe0013, undo  added, store 1, reply");
  EXPECT_EQ(cm->curItem, nullptr);
}

TEST_F(CfgManUpdates, ItemLinksLiveAsLongAsTheirConfiguration) {
  unsigned turn = 0;
  onApply = [&](CfgMan::Item* item, auto&, auto&, message& answer) {
    EXPECT_TRUE(item->links.empty());
    EXPECT_EQ(item->about, nullptr);
    const auto name = std::to_string(++turn);
    item->links.push_back(new Part(name, kit->seen()));
    item->links.push_back(new Part(name + "b", kit->seen()));
    item->about = std::make_unique<std::vector<std::function<std::string()>>>();
    item->about->push_back([name] { return "about " + name; });
    if (turn == 3) answer = nv::failedMsg("no");
  };
  const auto set = [&](const char* name) {
    ask(cmd::setObj, {{key::objectId, 1}, {key::name, name}});
    return line();
  };
  add({{key::name, "a"}});
  EXPECT_EQ(set("b"), "apply 1 20fe0010, release 1, release 1b, undo b changed, store 1, reply");
  EXPECT_EQ(set("c"), "apply 1 20fe0010, release 3, release 3b, reply");
  EXPECT_EQ(cm->find(1)->links.size(), 2u);
  EXPECT_EQ(set("b"), "undo b changed, reply");  // nothing to apply
  EXPECT_EQ(set("d"), "apply 1 20fe0010, release 2, release 2b, undo d changed, store 1, reply");
  EXPECT_EQ(ask(cmd::getObj, {{key::objectId, 1}}).get(key::about),
            std::vector<std::string>{"about 4"});
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(line(),
            "apply 1 8fe0013, release 4, release 4b, undo d removed, unstore 1, release 5, "
            "release 5b, reply");
  turn = 2;
  ask(cmd::addObj);
  EXPECT_EQ(line(), "apply 1 8fe0013, release 3, release 3b, reply");
}

}  // namespace
