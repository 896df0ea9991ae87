// Service code that ends, from within a call, what the call is about. Most of these fail under the
// address sanitizer alone.
#include <map>

#include "tests/support/cfgman_watchers.h"

using namespace test;
namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::message;

namespace {

/// A capture that is too long to stand in a function object. Read at the end of a callback, it
/// shows whether that was destroyed while it ran.
struct Long {
  char text[64] = "still here";
  void check() const { EXPECT_STREQ(text, "still here"); }
};

class CfgManLifetime : public CfgManTest {
 protected:
  CfgManLifetime() {
    start(Kind::ordered);
    add({{key::name, "a"}});
    add({{key::name, "b"}});
    kit->seen().clear();
  }
  /// Sends and runs, whether the manager outlives it or not.
  void sendAndRun(unsigned code, Fields fields = {}) {
    kit->ask(*cm->handler, command(code, fields));
    runAll();
    kit->settle();
  }
  void removeNow(std::uint32_t id) {
    cm->scheduleUpdate(id, {{key::absent, 1}}, {}, {}, {});
    runAll();
  }
};

// The manager ends.

TEST_F(CfgManLifetime, QueuedWorkOutlivesTheManager) {
  send(command(cmd::addObj));
  cm->setStore("unread", false);
  CfgMan other(&tasks);
  stores.set("unread", 1, {{key::objectId, 1}});
  other.setStore("unread", false);
  tasks.run();
  {
    CfgMan third(&tasks);
    third.setStore("unread", true);
    third.scheduleUpdate(1, {}, {}, {}, {});
  }
  cm.reset();
  runAll();
  EXPECT_NE(other.find(1), nullptr);
}

TEST_F(CfgManLifetime, TheManagerMayEndInAnyOfItsCallbacks) {
  using End = std::function<void()>;
  const struct {
    const char* name;
    std::function<void(CfgMan&, End)> arm;
    message command;
  } rows[] = {
      {"apply",
       [](CfgMan& m, End end) { m.apply = [end](auto*, auto*, auto&, auto&, auto&) { end(); }; },
       command(cmd::addObj)},
      {"applyItem",
       [](CfgMan& m, End end) { m.applyItem = [end](auto*, auto*, auto&, auto&) { end(); }; },
       command(cmd::setObj, {{key::objectId, 1}, {key::name, "z"}})},
      {"isExternalId",
       [](CfgMan& m, End end) { m.isExternalId = [end](auto) { return end(), true; }; },
       command(cmd::addObj, {{key::objectId, 9}})},
      {"isExternalId of a removal",
       [](CfgMan& m, End end) { m.isExternalId = [end](auto) { return end(), true; }; },
       command(cmd::removeObj, {{key::objectId, 2}})},
      {"makeName", [](CfgMan& m, End end) { m.makeName = [end] { return end(), "n"; }; },
       command(cmd::addObj)},
      {"describe", [](CfgMan& m, End end) { m.describe = [end](auto&) { return end(), "d"; }; },
       command(cmd::addObj)},
      {"doCmd", [](CfgMan& m, End end) { m.doCmd = [end](auto*, auto&) { end(); }; },
       command(cmd::getCount)},
      {"doGet",
       [](CfgMan& m, End end) {
         m.doGet = [end](auto*, auto, auto, auto&) { return end(), message(); };
       },
       command(cmd::getObj)},
      {"fillMsg",
       [](CfgMan& m, End end) { m.fillMsg = [end](auto&, auto*, auto, auto) { end(); }; },
       command(cmd::getAll)},
      {"fillItemMsg",
       [](CfgMan& m, End end) { m.fillItemMsg = [end](auto*, auto*, auto&, auto) { end(); }; },
       command(cmd::getObj, {{key::objectId, 1}})},
      {"about",
       [](CfgMan& m, End end) {
         m.find(1)->about = std::make_unique<std::vector<std::function<std::string()>>>();
         for (int k = 0; k < 2; ++k) m.find(1)->about->push_back([end] { return end(), "t"; });
       },
       command(cmd::getAll)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    restart();
    ASSERT_NE(cm->find(1), nullptr);
    bool wasCalled = false;
    row.arm(*cm, [this, &wasCalled, payload = Long()] {
      cm.reset();
      wasCalled = true;
      payload.check();
    });
    kit->ask(*cm->handler, row.command);
    runAll();
    kit->settle();
    EXPECT_TRUE(wasCalled);
  }
}

TEST_F(CfgManLifetime, TheManagerMayEndWhileAnItemLinkIsReleased) {
  for (const auto code : {cmd::setObj, cmd::removeObj}) {
    restart();
    cm->apply = [](auto*, auto*, auto&, auto&, auto&) {};
    cm->find(1)->links.push_back(new Part("p", kit->seen(), [this] { cm.reset(); }));
    sendAndRun(code, {{key::objectId, 1}, {key::name, "z"}});
    EXPECT_EQ(cm, nullptr);
  }
}

TEST_F(CfgManLifetime, TheManagerMayEndInAnObserverWhichLeavesTheRunnerFree) {
  struct Ender final : CfgMan::Link {
    explicit Ender(std::unique_ptr<CfgMan>& m) : manager(m) { manager->links.push_back(this); }
    void update(CfgMan::Item*, const message&, const message&, const message&, const message&,
                const vset<unsigned>&) override {
      manager.reset();
    }
    void print(std::ostream&) override {}
    std::unique_ptr<CfgMan>& manager;
  };
  const Ender ender(cm);
  sendAndRun(cmd::addObj);
  EXPECT_EQ(cm, nullptr);
  EXPECT_FALSE(tasks.running);
}

TEST_F(CfgManLifetime, TheManagerMayEndInsideAGuard) {
  bool isPlain = true;
  cm->handler->subscribe({}, isPlain);
  const NotifyGuard guard(cm.get(), 1);
  cm.reset();
}

TEST_F(CfgManLifetime, TheHandlerMayEndBeforeTheManager) {
  bool isPlain = true;
  cm->mkSubscr = mkSubscrBasic;
  cm->handler->subscribe({}, isPlain);
  send(command(cmd::addObj));
  delete cm->handler;
  EXPECT_EQ(cm->handler, nullptr);
  EXPECT_TRUE(cm->links.empty());
  runAll();
  EXPECT_EQ(ids(), "1 2 3");
  EXPECT_EQ(line(), "store 2, store 3");
}

TEST_F(CfgManLifetime, TheHandlerMayEndInAnObserver) {
  bool isPlain = true;
  Hearer hearer(*cm, kit->seen());
  std::swap(cm->links.front(), cm->links.back());
  cm->handler->subscribe({}, isPlain);
  hearer.then = [&](auto*) { delete cm->handler; };
  sendAndRun(cmd::addObj);
  EXPECT_EQ(ids(), "1 2 3");
}

// Callbacks that replace themselves.

TEST_F(CfgManLifetime, ACallbackMayReplaceItself) {
  const Long payload;
  cm->apply = [this, payload](auto*, auto*, auto&, auto&, auto&) {
    cm->apply = nullptr;
    payload.check();
  };
  cm->makeName = [this, payload] {
    cm->makeName = nullptr;
    payload.check();
    return "made";
  };
  cm->describe = [this, payload](auto&) {
    cm->describe = nullptr;
    payload.check();
    return "described";
  };
  cm->doCmd = [this, payload](auto*, const message& cmd) {
    cm->doCmd = nullptr;
    payload.check();
    cm->defDoCmd(cmd);
  };
  EXPECT_EQ(ask(cmd::addObj), message({{key::objectId, 3}}));
  EXPECT_EQ(kit->seen().undos[0].description, "described added");
  EXPECT_EQ(cm->find(3)->config.get(key::name), "made");

  cm->doCmd = [this](auto*, const message& cmd) { cm->defDoCmd(cmd); };
  cm->applyItem = [this, payload](auto*, auto*, auto&, auto&) {
    cm->applyItem = nullptr;
    payload.check();
  };
  ask(cmd::setObj, {{key::objectId, 3}, {key::name, "again"}});
  cm->doGet = [this, payload](auto*, auto, auto, auto&) {
    cm->doGet = CfgMan::defDoGet;
    payload.check();
    return message({{key::count, 9}});
  };
  EXPECT_EQ(ask(cmd::getCount), message({{key::count, 9}}));
  EXPECT_EQ(ask(cmd::getCount), message({{key::count, 3}}));
}

// Items go while they are looked at.

TEST_F(CfgManLifetime, AnItemMayGoWhileItsPageIsMade) {
  cm->fillItemMsg = [this](auto*, CfgMan::Item* item, auto&, auto) {
    if (item->id == 1) removeNow(2);
  };
  EXPECT_EQ(ask(cmd::getAll).get(key::objects).size(), 1u);
  add();
  cm->fillItemMsg = [this](auto*, CfgMan::Item* item, auto&, auto) { removeNow(item->id); };
  sendAndRun(cmd::getAll);
  EXPECT_EQ(ids(), "");
}

TEST_F(CfgManLifetime, AnItemMayGoOrChangeWhileItsTextsAreAsked) {
  const auto arm = [&](std::uint32_t id, std::function<void()> act) {
    auto texts = std::make_unique<std::vector<std::function<std::string()>>>();
    for (int k = 0; k < 2; ++k)
      texts->push_back([act, payload = Long()] {
        act();
        payload.check();
        return "text";
      });
    cm->find(id)->about = std::move(texts);
  };
  arm(1, [&] { removeNow(1); });
  cm->handler->getObject(1, 5);
  EXPECT_EQ(ids(), "2");
  cm->apply = [](auto*, auto*, auto&, auto&, auto&) {};
  arm(2, [&] {
    cm->scheduleUpdate(2, {{key::name, "new"}}, {}, {}, {});
    runAll();
  });
  EXPECT_EQ(cm->handler->getObject(2, 5).get(key::about), std::vector<std::string>{"text"});
}

TEST_F(CfgManLifetime, ARemovalRunFromApplyFollowsTheUpdate) {
  cm->apply = [this](auto*, CfgMan::Item* item, message& cfg, auto&, auto&) {
    if (cfg.get(key::absent) == 0) removeNow(item->id);
  };
  EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}, {key::name, "z"}}),
            message({{key::objectId, 1}}));
  EXPECT_EQ(line(), "undo z changed, store 1, reply, store 4294967294, unstore 1");
  EXPECT_EQ(ids(), "2");
  EXPECT_EQ(stored(), "head>2 2");
}

TEST_F(CfgManLifetime, ARemovalRunFromAnObserverFollowsTheUpdate) {
  Hearer hearer(*cm, kit->seen());
  const auto changeWhileGoing = [&](message change, std::uint32_t gone) {
    kit->seen().clear();
    send(change);
    cm->scheduleUpdate(gone, {{key::absent, 1}}, {}, {}, {});
    hearer.then = [&](auto*) {
      hearer.then = nullptr;
      tasks.run();
    };
    runAll();
    return reply();
  };
  add();
  EXPECT_EQ(changeWhileGoing(command(cmd::moveObj, {{key::objectId, 1}, {key::nextId, 3}}), 3),
            message({{key::objectId, 1}}));
  EXPECT_EQ(ids(), "2 1");
  EXPECT_EQ(changeWhileGoing(command(cmd::setObj, {{key::objectId, 1}, {key::name, "z"}}), 1),
            message({{key::objectId, 1}}));
  EXPECT_EQ(ids(), "2");
  EXPECT_EQ(stored(), "head>2 2");
}

TEST_F(CfgManLifetime, ObserversMayComeAndGoDuringAnUpdate) {
  auto second = std::make_unique<Hearer>(*cm, kit->seen());
  Hearer first(*cm, kit->seen());
  std::unique_ptr<Hearer> late;
  std::swap(cm->links[1], cm->links[2]);
  first.then = [&](auto*) {
    late = std::make_unique<Hearer>(*cm, kit->seen());
    second.reset();
  };
  ask(cmd::setObj, {{key::objectId, 1}, {key::name, "z"}});
  EXPECT_EQ(line(), "undo z changed, hear 1 20fe0010, store 1, reply");
  first.then = nullptr;
  ask(cmd::setObj, {{key::objectId, 1}, {key::name, "y"}});
  EXPECT_EQ(line(), "undo y changed, hear 1 20fe0010, hear 1 20fe0010, store 1, reply");
}

TEST_F(CfgManLifetime, AReleasedLinkMayLookAtItsItemAndPostMore) {
  std::size_t held = 99;
  cm->apply = [](auto*, auto*, auto&, auto&, auto&) {};
  auto* const item = cm->find(1);
  for (const auto* name : {"p", "q"})
    item->links.push_back(new Part(name, kit->seen(), [&, item] {
      held = item->links.size();
      cm->scheduleUpdate(2, {{key::name, "told"}}, {}, {}, {});
    }));
  ask(cmd::setObj, {{key::objectId, 1}, {key::name, "z"}});
  EXPECT_EQ(held, 0u);
  EXPECT_EQ(cm->find(2)->config.get(key::name), "told");
}

TEST_F(CfgManLifetime, LinksOfLivingItemsAreReleasedWithTheManager) {
  cm->find(1)->links.push_back(new Part("p", kit->seen()));
  cm.reset();
  EXPECT_EQ(line(), "release p");
}

// Subscriptions end while they are asked.

TEST_F(CfgManLifetime, ASubscriptionMayEndAnyOtherWhileItIsAsked) {
  const auto toldBy = [this](std::size_t ender, std::size_t ended, auto change) {
    restart();
    std::vector<void*> made;
    std::map<void*, std::size_t> numbers;
    bool isDone = false;
    cm->mkSubscr = [&](const message& req, bool) {
      return new Filter(req, 5, [&, self = made.size()](unsigned, const message&) {
        if (self == ender && !std::exchange(isDone, true))
          cm->handler->unsubscribe({}, made[ended]);
        return true;
      });
    };
    for (std::size_t k = 0; k < 3; ++k) {
      bool isPlain = true;
      made.push_back(cm->handler->subscribe({}, isPlain));
      numbers[made.back()] = k;
    }
    change();
    std::string told;
    for (const auto& one : kit->seen().notifies) told += std::to_string(numbers[one.cookie]);
    return told;
  };
  unsigned turn = 0;
  for (const std::size_t ender : {0u, 1u, 2u}) {
    for (const std::size_t ended : {0u, 1u, 2u}) {
      const std::string others = ended == 0 ? "12" : ended == 1 ? "02" : "01";
      const auto update = [&] {
        ask(cmd::setObj, {{key::objectId, 1}, {key::cfgText, std::to_string(++turn)}});
      };
      EXPECT_EQ(toldBy(ender, ended, update), ended < ender ? "012" : others) << ender << ended;
      const auto guarded = [&] {
        const NotifyGuard guard(cm.get(), 1);
        cm->find(1)->state.insert(key::stateFlag, false);
      };
      EXPECT_EQ(toldBy(ender, ended, guarded), others) << ender << ended;
    }
  }
}

TEST_F(CfgManLifetime, ASubscriberThatIsGoneIsNotSentWhatWasMarked) {
  cm->mkSubscr = mkSubscrBasic;
  kit->listen(5);
  auto peer = kit->connect();
  peer->send(command(cmd::subscribe, {{key::route, {5}}, {key::tag, 1}}));
  kit->settle();
  peer->received();
  cm->scheduleUpdate(1, {{key::name, "z"}}, {}, {}, {});
  runAll();
  peer->send(command(cmd::unsubscribe, {{key::route, {5}}, {key::tag, 2}, {key::objectId, 1}}));
  kit->settle();
  peer->received();
  cm->scheduleUpdate(1, {{key::name, "y"}}, {}, {}, {});
  runAll();
  kit->settle();
  EXPECT_TRUE(peer->received().empty());
}

// Remotes end while they speak.

TEST_F(CfgManLifetime, AManagerMayEndInTheCompletionOfItsRemote) {
  kit->seen().answersFollows = true;
  cm->setRemote(7, nv::kNoId, [this, payload = Long()] {
    cm.reset();
    payload.check();
  });
  const auto deliver = kit->seen().follows[0].deliver;
  deliver({});
  EXPECT_EQ(cm, nullptr);
  EXPECT_TRUE(kit->seen().follows[0].stopped);
  deliver({{key::objectId, 1}});
  deliver({});
}

TEST_F(CfgManLifetime, AMirrorMayEndOrTurnElsewhereWhileItIsSpokenTo) {
  auto mirror = std::make_unique<CfgMan>(&tasks);
  unsigned loads = 0;
  mirror->setRemote(5, nv::kNoId, [&] {
    ++loads;
    mirror->setRemote(5, nv::kNoId, [&] {
      ++loads;
      mirror.reset();
    });
  });
  kit->settle();
  runAll();
  kit->settle();
  EXPECT_EQ(loads, 2u);
  EXPECT_EQ(mirror, nullptr);
  runAll();
}

}  // namespace
