// The queue of updates: what runs when.
#include "tests/support/cfgman_watchers.h"

using namespace test;

namespace {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
struct Eager final : CfgMan::RunTask {
  void post(Task task) override { task(); }
};
#pragma GCC diagnostic pop

class CfgManRunner : public CfgManTest {
 protected:
  CfgMan::RunTask::Task say(std::string word) {
    return [this, word = std::move(word)] { said += word + " "; };
  }
  /// A process starts on the records 1 and 2, and has not read them yet.
  void startUnread() {
    stores.set("items", 1, {{key::name, "one"}});
    stores.set("items", 2, {{key::name, "two"}});
    stop();
    kit = std::make_unique<nv::testkit::Kit>(stores);
    cm = std::make_unique<CfgMan>(&tasks);
    cm->setHandler(5);
    cm->setStore("items", false);
  }
  std::string said;
};

TEST_F(CfgManRunner, OneRunIsOnePendingTaskAndAllDeferredOnes) {
  EXPECT_FALSE(tasks.run());
  tasks.running = true;
  tasks.post([this] {
    say("d1")();
    tasks.running = true;
    tasks.post(say("d3"));
    tasks.running = false;
  });
  tasks.post(say("d2"));
  tasks.running = false;
  EXPECT_FALSE(tasks.run());
  tasks.post([this] {
    say("p1")();
    tasks.post(say("p3"));
  });
  tasks.post(say("p2"));
  EXPECT_TRUE(tasks.run());
  EXPECT_EQ(said, "p1 d1 d2 d3 ");
  EXPECT_TRUE(tasks.run());
  EXPECT_FALSE(tasks.run());
  EXPECT_EQ(said, "p1 d1 d2 d3 p2 p3 ");
}

TEST_F(CfgManRunner, ANestedRunCallsTheNextTaskNotTheSameOneAgain) {
  tasks.post([this] {
    say("a")();
    EXPECT_TRUE(tasks.run());
    say("a-end")();
  });
  tasks.post(say("b"));
  tasks.post(say("c"));
  EXPECT_TRUE(tasks.run());
  EXPECT_EQ(said, "a b a-end ");
}

TEST_F(CfgManRunner, WhatObserversPostRunsRightAfterTheUpdate) {
  Hearer hearer(*cm, kit->seen());
  hearer.then = [&](CfgMan::Item* item) {
    if (item->id == 1) cm->scheduleUpdate(kNoId, {{key::absent, 0}}, {}, {}, {});
    EXPECT_TRUE(tasks.running);
  };
  cm->apply = [this](auto*, auto*, auto&, auto&, auto&) { EXPECT_FALSE(tasks.running); };
  send(command(cmd::addObj));
  send(command(cmd::addObj, {{key::objectId, 70}}));
  EXPECT_TRUE(tasks.run());
  EXPECT_EQ(ids(), "1 2");
  EXPECT_FALSE(tasks.running);
  EXPECT_FALSE(tasks.run());
  EXPECT_EQ(ids(), "1 2 70");
}

TEST_F(CfgManRunner, AnUpdateNestedInAnotherLeavesTheOtherOneWhole) {
  for (const auto* name : {"a", "b"}) add({{key::name, name}});
  cm->apply = [&](CfgMan* manager, CfgMan::Item* item, message&, vset<unsigned>& keys, auto&) {
    if (item->id == 1) tasks.run();
    EXPECT_EQ(manager->curItem, item);
    EXPECT_EQ(manager->curKeys, &keys);
  };
  kit->seen().clear();
  send(command(cmd::setObj, {{key::objectId, 1}, {key::name, "A"}}));
  cm->scheduleUpdate(2, {{key::name, "B"}}, {}, {}, command(cmd::setObj));  // as from the store
  tasks.run();
  EXPECT_EQ(line(), "undo A changed, store 1, reply");
  EXPECT_EQ(cm->find(2)->config.get(key::name), "B");
}

TEST_F(CfgManRunner, ARunnerThatNeverWaitsNestsUpdates) {
  Eager eager;
  stores.set("eager", 2, {{key::name, "two"}});
  stores.set("eager", 1, {{key::name, "one"}, {key::nextId, 2}});
  CfgMan now(&eager);
  now.setStore("eager", true);
  const auto add = [&](std::uint32_t before) {
    now.doCmd(nullptr, command(cmd::addObj, {{key::requester, {1}}, {key::nextId, before}}));
  };
  add(2);
  add(kNoId);
  std::string order;
  for (auto* const item : now)
    order += std::to_string(item->id) + ">" + std::to_string(item->state.get(key::nextId)) + " ";
  EXPECT_EQ(order, "1>3 3>2 2>4 4>4294967295 ");
}

// The process-wide runner.

TEST_F(CfgManRunner, TheGlobalOneRunsATaskAPass) {
  EXPECT_EQ(CfgMan().runTask, &CfgMan::globalRunTask);
  EXPECT_EQ(CfgMan::getGlobalRunTask(), &CfgMan::globalRunTask);
  CfgMan one, two;
  for (const auto turn : {0, 1}) {
    for (unsigned k = 0; k < 3; ++k) one.scheduleUpdate(kNoId, {{key::absent, 0}}, {}, {}, {});
    two.scheduleUpdate(kNoId, {{key::absent, 0}}, {}, {}, {});
    std::string seen;
    while (seen.empty() || !CfgMan::globalRunTask.pending.empty()) {
      const auto before = one.items.size() + two.items.size();
      kit->pass();
      const auto done = one.items.size() + two.items.size() - before;
      if (!seen.empty() || done != 0) seen += std::to_string(done);
      ASSERT_LT(seen.size(), 20u);
    }
    EXPECT_EQ(seen, "1111") << turn;
  }
}

TEST_F(CfgManRunner, TheGlobalOneSleepsWhenOnlyDeferredTasksAreThere) {
  CfgMan::globalRunTask.deferred.push_back(say("deferred"));
  kit->settle();
  EXPECT_EQ(said, "");
  CfgMan::getGlobalRunTask()->post(say("pending"));
  kit->settle();
  EXPECT_EQ(said, "pending deferred ");
}

TEST_F(CfgManRunner, TheGlobalOneGoesOnInANewLoop) {
  CfgMan::getGlobalRunTask()->post(say("first"));
  CfgMan::getGlobalRunTask()->post(say("second"));
  kit->pass();
  restart();
  kit->settle();
  EXPECT_EQ(said, "first second ");
}

// The store.

TEST_F(CfgManRunner, TheFirstStoreStays) {
  add();
  auto* const store = cm->store;
  cm->setStore("others", true);
  EXPECT_EQ(cm->store, store);
  EXPECT_FALSE(cm->ordered);
  EXPECT_FALSE(tasks.run());
  EXPECT_FALSE(stores.has("others"));
}

TEST_F(CfgManRunner, CommandsThatComeWhileTheStoreIsReadWaitAndKeepTheirOrder) {
  startUnread();
  send(command(cmd::addObj, {{key::name, "new"}}));
  send(command(cmd::getCount));
  EXPECT_EQ(reply(), message({{key::count, 0}}));  // reads are answered at once
  tasks.run();
  tasks.run();  // the add comes to its turn
  send(command(cmd::setObj, {{key::objectId, 3}, {key::name, "newer"}}));
  send(command(cmd::removeObj, {{key::objectId, 1}}));
  kit->seen().clear();
  std::string counts;
  do counts += std::to_string(cm->items.size());
  while (tasks.run());
  EXPECT_EQ(counts.substr(0, 3), "012") << "records become items one task at a time";
  EXPECT_EQ(line(),
            "undo new added, store 3, reply, undo newer changed, store 3, reply, "
            "undo one removed, unstore 1, reply");
  EXPECT_EQ(ids(), "2 3");
}

TEST_F(CfgManRunner, NoUpdateOvertakesOneThatWaits) {
  startUnread();
  cm->scheduleUpdate(1, {{key::name, "first"}}, {}, {}, {});
  while (cm->find(1) == nullptr) tasks.run();
  update(1, {{key::name, "second"}});
  EXPECT_EQ(cm->find(1)->config.get(key::name), "second");
}

}  // namespace
