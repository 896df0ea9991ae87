// Service code that ends, from within a call, what the call is about. Most of these fail under the
// address sanitizer alone.
#include <map>

#include "tests/support/cfgman_watchers.h"

using namespace test;

namespace {

using End = std::function<void()>;

/// A capture that is too long to stand in a function object. Read at the end of a callback, it
/// shows whether that was destroyed while it ran.
struct Long {
  char text[64] = "still here";
  void check() const { EXPECT_STREQ(text, "still here"); }
};

constexpr auto accept = [](auto&&...) {};

/// Makes a callback do `act` and answer with nothing.
template <class R, class... A>
void arm(std::function<R(A...)>& callback, End act) {
  callback = [act](A...) { return act(), R(); };
}

/// Makes a callback answer once; from then on it is `next`.
template <class R, class... A, class Answer>
void armOnce(std::function<R(A...)>& callback, Answer answer, std::function<R(A...)> next = {}) {
  callback = [&callback, answer, next, payload = Long()](A... args) {
    callback = next;
    payload.check();
    return answer(args...);
  };
}

/// Two texts, each of which does `act` first.
void armTexts(CfgMan::Item& item, End act) {
  item.about = std::make_unique<std::vector<std::function<std::string()>>>();
  for (int k = 0; k < 2; ++k)
    item.about->push_back([act, payload = Long()] {
      act();
      payload.check();
      return "text";
    });
}

class CfgManLifetime : public CfgManTest {
 protected:
  CfgManLifetime() {
    start(Kind::ordered);
    for (const auto* name : {"a", "b"}) add({{key::name, name}});
    kit->seen().clear();
  }

  /// Sends and runs, whether the manager outlives it or not.
  void sendAndRun(const message& cmd) {
    send(cmd);
    runAll();
    kit->settle();
  }
  void removeNow(std::uint32_t id) { update(id, {{key::absent, 1}}); }
  void* subscribe() {
    bool isPlain = true;
    return cm->handler->subscribe({}, isPlain);
  }

  std::unique_ptr<Hearer> hearer;
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
  const auto add = command(cmd::addObj), page = command(cmd::getAll);
  const auto addAt9 = command(cmd::addObj, {{key::objectId, 9}});
  const auto change = command(cmd::setObj, {{key::objectId, 1}, {key::name, "z"}});
  const auto removal = command(cmd::removeObj, {{key::objectId, 1}});
  const auto removal2 = command(cmd::removeObj, {{key::objectId, 2}});
  const auto get = command(cmd::getObj, {{key::objectId, 1}});
  const auto armLink = [&](End end) {
    cm->apply = accept;
    cm->find(1)->links.push_back(new Part("p", kit->seen(), end));
  };
  const struct {
    const char* name;
    std::function<void(End)> arm;
    message command;
  } rows[] = {
      {"apply", [&](End end) { arm(cm->apply, end); }, add},
      {"applyItem", [&](End end) { arm(cm->applyItem, end); }, change},
      {"isExternalId", [&](End end) { arm(cm->isExternalId, end); }, addAt9},
      {"isExternalId of a removal", [&](End end) { arm(cm->isExternalId, end); }, removal2},
      {"makeName", [&](End end) { arm(cm->makeName, end); }, add},
      {"describe", [&](End end) { arm(cm->describe, end); }, add},
      {"doCmd", [&](End end) { arm(cm->doCmd, end); }, get},
      {"doGet", [&](End end) { arm(cm->doGet, end); }, get},
      {"doGet of a count", [&](End end) { arm(cm->doGet, end); }, command(cmd::describe)},
      {"fillMsg", [&](End end) { arm(cm->fillMsg, end); }, page},
      {"fillItemMsg", [&](End end) { arm(cm->fillItemMsg, end); }, get},
      {"about", [&](End end) { armTexts(*cm->find(1), end); }, page},
      {"observer", [&](End end) { hearer->then = [end](auto*) { end(); }; }, add},
      {"link of a change", armLink, change},
      {"link of a removal", armLink, removal},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    restart();
    hearer = std::make_unique<Hearer>(*cm, kit->seen());
    ASSERT_NE(cm->find(1), nullptr);
    row.arm([this, payload = Long()] {
      cm.reset();
      payload.check();
    });
    sendAndRun(row.command);
    EXPECT_EQ(cm, nullptr);
    EXPECT_FALSE(tasks.running);
  }
}

TEST_F(CfgManLifetime, TheManagerMayEndInsideAGuard) {
  subscribe();
  const NotifyGuard guard(cm.get(), 1);
  cm.reset();
}

TEST_F(CfgManLifetime, TheHandlerMayEndBeforeTheManager) {
  cm->mkSubscr = mkSubscrBasic;
  subscribe();
  send(command(cmd::addObj));
  delete cm->handler;
  EXPECT_EQ(cm->handler, nullptr);
  EXPECT_TRUE(cm->links.empty());
  runAll();
  EXPECT_EQ(ids(), "1 2 3");
  EXPECT_EQ(line(), "store 2, store 3");
}

TEST_F(CfgManLifetime, TheHandlerMayEndInAnObserver) {
  hearer = std::make_unique<Hearer>(*cm, kit->seen());
  std::swap(cm->links.front(), cm->links.back());
  subscribe();
  hearer->then = [&](auto*) { delete cm->handler; };
  sendAndRun(command(cmd::addObj));
  EXPECT_EQ(ids(), "1 2 3");
}

// Callbacks that replace themselves.

TEST_F(CfgManLifetime, ACallbackMayReplaceItself) {
  armOnce(cm->apply, accept);
  armOnce(cm->makeName, [] { return "made"; });
  armOnce(cm->describe, [](auto&) { return "described"; });
  armOnce(
      cm->doCmd, [this](auto*, auto& cmd) { cm->defDoCmd(cmd); }, cm->doCmd);
  EXPECT_EQ(ask(cmd::addObj), message({{key::objectId, 3}}));
  EXPECT_EQ(kit->seen().undos[0].description, "described added");
  EXPECT_EQ(cm->find(3)->config.get(key::name), "made");

  armOnce(cm->applyItem, accept);
  set(3, {{key::name, "again"}});
  armOnce(
      cm->doGet,
      [](auto&&...) {
        return message({{key::count, 9}});
      },
      cm->doGet);
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
  sendAndRun(command(cmd::getAll));
  EXPECT_EQ(ids(), "");
}

TEST_F(CfgManLifetime, AnItemMayGoOrChangeWhileItsTextsAreAsked) {
  armTexts(*cm->find(1), [&] { removeNow(1); });
  cm->handler->getObject(1, 5);
  EXPECT_EQ(ids(), "2");
  cm->apply = accept;
  armTexts(*cm->find(2), [&] { update(2, {{key::name, "new"}}); });
  EXPECT_EQ(cm->handler->getObject(2, 5).get(key::about), std::vector<std::string>{"text"});
}

TEST_F(CfgManLifetime, ARemovalRunFromApplyFollowsTheUpdate) {
  cm->apply = [this](auto*, CfgMan::Item* item, message& cfg, auto&, auto&) {
    if (cfg.get(key::absent) == 0) removeNow(item->id);
  };
  EXPECT_EQ(set(1, {{key::name, "z"}}), message({{key::objectId, 1}}));
  EXPECT_EQ(line(), "undo z changed, store 1, reply, store 4294967294, unstore 1");
  EXPECT_EQ(ids(), "2");
  EXPECT_EQ(stored(), "head>2 2");
}

TEST_F(CfgManLifetime, ARemovalRunFromAnObserverFollowsTheUpdate) {
  hearer = std::make_unique<Hearer>(*cm, kit->seen());
  const auto changeWhileGoing = [&](const message& change, std::uint32_t gone) {
    kit->seen().clear();
    send(change);
    cm->scheduleUpdate(gone, {{key::absent, 1}}, {}, {}, {});
    hearer->then = [&](auto*) {
      hearer->then = nullptr;
      tasks.run();
    };
    runAll();
    EXPECT_EQ(reply(), message({{key::objectId, 1}}));
  };
  add();
  changeWhileGoing(command(cmd::moveObj, {{key::objectId, 1}, {key::nextId, 3}}), 3);
  EXPECT_EQ(ids(), "2 1");
  changeWhileGoing(command(cmd::setObj, {{key::objectId, 1}, {key::name, "z"}}), 1);
  EXPECT_EQ(ids(), "2");
  EXPECT_EQ(stored(), "head>2 2");
}

TEST_F(CfgManLifetime, ObserversMayComeAndGoDuringAnUpdate) {
  auto second = std::make_unique<Hearer>(*cm, kit->seen());
  Hearer first(*cm, kit->seen());
  std::swap(cm->links[1], cm->links[2]);
  first.then = [&](auto*) {
    hearer = std::make_unique<Hearer>(*cm, kit->seen());
    second.reset();
  };
  set(1, {{key::name, "z"}});
  EXPECT_EQ(line(), "undo z changed, hear 1 20fe0010, store 1, reply");
  first.then = nullptr;
  set(1, {{key::name, "y"}});
  EXPECT_EQ(line(), "undo y changed, hear 1 20fe0010, hear 1 20fe0010, store 1, reply");
}

TEST_F(CfgManLifetime, AReleasedLinkMayLookAtItsItemAndPostMore) {
  std::size_t held = 99;
  cm->apply = accept;
  auto* const item = cm->find(1);
  for (const auto* name : {"p", "q"})
    item->links.push_back(new Part(name, kit->seen(), [&, item] {
      held = item->links.size();
      cm->scheduleUpdate(2, {{key::name, "told"}}, {}, {}, {});
    }));
  set(1, {{key::name, "z"}});
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
    bool isDone = false;
    cm->mkSubscr = [&](const message& req, bool) {
      return new Filter(req, 5, [&, self = made.size()](unsigned, const message&) {
        if (self == ender && !std::exchange(isDone, true))
          cm->handler->unsubscribe({}, made[ended]);
        return true;
      });
    };
    for (int k = 0; k < 3; ++k) made.push_back(subscribe());
    change();
    std::string told;
    for (const auto& one : kit->seen().notifies)
      told += std::to_string(std::find(made.begin(), made.end(), one.cookie) - made.begin());
    return told;
  };
  unsigned turn = 0;
  const auto updated = [&] { set(1, {{key::cfgText, std::to_string(++turn)}}); };
  const auto guarded = [&] {
    const NotifyGuard guard(cm.get(), 1);
    cm->find(1)->state.insert(key::stateFlag, false);
  };
  const std::string others[] = {"12", "02", "01"};
  for (const std::size_t ender : {0u, 1u, 2u}) {
    for (const std::size_t ended : {0u, 1u, 2u}) {
      SCOPED_TRACE(std::to_string(ender) + " ends " + std::to_string(ended));
      EXPECT_EQ(toldBy(ender, ended, updated), ended < ender ? "012" : others[ended]);
      EXPECT_EQ(toldBy(ender, ended, guarded), others[ended]);
    }
  }
}

TEST_F(CfgManLifetime, ASubscriberThatIsGoneIsNotSentWhatWasMarked) {
  cm->mkSubscr = mkSubscrBasic;
  kit->listen(5);
  auto peer = kit->connect();
  const auto say = [&](unsigned code, Fields fields) {
    auto request = command(code, fields);
    peer->send(request.insert(key::route, {5}).insert(key::tag, 1));
    kit->settle();
    peer->received();
  };
  say(cmd::subscribe, {});
  update(1, {{key::name, "z"}});
  say(cmd::unsubscribe, {{key::objectId, 1}});
  update(1, {{key::name, "y"}});
  kit->settle();
  EXPECT_TRUE(peer->received().empty());
}

// Remotes end while they speak.

TEST_F(CfgManLifetime, AManagerMayEndInTheCompletionOfItsRemote) {
  kit->seen().answersFollows = true;
  cm->setRemote(7, kNoId, [this, payload = Long()] {
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

}  // namespace
