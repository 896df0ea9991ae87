// States, the service and the manager ended from within anything.
#include "platform/timer.h"
#include "tests/support/getall_fixture.h"

using namespace test;

namespace {

class GetallLife : public GetallTest {
 protected:
  using End = std::function<void()>;
  struct Ending {
    const char* how;
    End end;
  };
  /// What ends the first state and, some of it, others. Each leaves no state of route [5].
  std::vector<Ending> endings() {
    return {
        {"deleted", [this] { delete &state(); }},
        {"stopped", [this] { getall->handleCmd(stopRequest(kFirstState)); }},
        {"gone", [this] { getall->handleCmd(stopRequest(kNoId)); }},
        {"service deleted", [this] { getall.reset(); }},
        {"deleted after the manager",
         [this] {
           cm.reset();
           delete &state();
         }},
    };
  }
  static message stopRequest(std::uint32_t id) {
    return {{key::command, cmd::stopGetAll}, {key::requester, Route{5}}, {key::startId, id}};
  }
  void drop() {
    if (getall) getall->handleCmd(stopRequest(kNoId));
  }
  void restartAll() {
    getall.reset();
    ASSERT_EQ(alive(), 0U);
    restart();
    getall = std::make_unique<TestGetall>();
    getall->setCm(cm.get());
  }
  /// For each ending: opens a state and lets `happen` lead to the end.
  void forEachEnding(const std::function<void(const End&)>& happen, bool mayEndManager = true) {
    auto all = endings();
    if (!mayEndManager) all.pop_back();
    for (const auto& ending : all) {
      SCOPED_TRACE(ending.how);
      restartAll();
      open();
      happen(ending.end);
      EXPECT_EQ(alive(), 0U);
      kit->advance(1000);
    }
  }
  void endBeforeReply(const End& end) {
    state().onReply = [end](message&) { end(); };
  }
};

TEST_F(GetallLife, AStateEndsWithinItsHooks) {
  forEachEnding([&](const End& end) {
    state().onMore = end;
    askOn(1);
    EXPECT_EQ(told(), ">s1") << "only the older request was answered";
  });
  forEachEnding([&](const End& end) {
    endBeforeReply(end);
    EXPECT_EQ(toldAfter(100), "") << "the reply goes with the state";
  });
  forEachEnding([&](const End& end) {
    endBeforeReply(end);
    askOn(1);
    EXPECT_EQ(told(), "") << "so does the next request";
  });
  forEachEnding([&](const End& end) {
    toldAfter(100);
    askOn(1, {{key::maxPerReply, 1}});
    state().addAll({1});
    endBeforeReply(end);
    state().addAll({2});
    EXPECT_EQ(told(), "");
  });
  forEachEnding([&](const End& end) {
    const nv::Timer timer(50, end);
    kit->advance(50);
  });
}

TEST_F(GetallLife, AStateEndsWithinItsReply) {
  const auto askAgain = [&](const End& end) {
    const OnReply watch(end);
    askOn(1);
    EXPECT_EQ(told(), ">s1");
  };
  const auto finish = [&](const End& end) {
    const OnReply watch(end);
    state().done();
    EXPECT_EQ(told(), ".");
  };
  forEachEnding(askAgain, false);
  forEachEnding(finish, false);
}

TEST_F(GetallLife, ARequestMadeWithinAReplyOrBeforeItIsKept) {
  const OnReply watch([this] { askOn(1, {{key::getFlags, 2}}); });
  open({{key::getFlags, 1}});
  kit->advance(200);
  askOn(1, {{key::getFlags, 3}});
  state().onReply = [this](message&) { askOn(1, {{key::getFlags, 4}}); };
  askOn(1, {{key::getFlags, 5}});
  kit->advance(1000);
  Ids answered;
  for (const auto& one : kit->seen().replies) answered.push_back(one.request.get(key::getFlags));
  EXPECT_EQ(answered, (Ids{1, 2, 3, 4, 5}));
}

TEST_F(GetallLife, StatesEndWithinEachOthersDestructors) {
  const struct {
    const char* how;
    End end;
  } cases[] = {
      {"delete the other", [] { delete TestState::alive.back(); }},
      {"drop the route", [this] { drop(); }},
      {"end the service", [this] { getall.reset(); }},
      {"end the manager", [this] { cm.reset(); }},
  };
  const End beginnings[] = {
      [this] { gone({5}); },
      [this] { stop(kFirstState); },
      [this] { kit->advance(100); },
      [this] { getall.reset(); },
  };
  for (const auto& [how, end] : cases)
    for (std::size_t k = 0; k < std::size(beginnings); ++k) {
      SCOPED_TRACE(how + (" " + std::to_string(k)));
      restartAll();
      open();
      open({}, {5, 1});
      for (auto* const each : TestState::alive) each->done();
      state().onDelete = end;
      beginnings[k]();
      cm ? drop() : getall.reset();
      EXPECT_EQ(alive(), 0U);
      kit->advance(1000);
    }
}

TEST_F(GetallLife, CleanUpAsksAgainAtEachTurn) {
  open();
  open();
  for (auto* const each : TestState::alive) each->done();
  state().onDelete = [this] { state().addAll({1}); };
  kit->advance(100);
  EXPECT_EQ(alive(), 1U) << "the second has something to deliver since";
  told();
  askOn(2);
  EXPECT_EQ(told(), "1 .");
}

TEST_F(GetallLife, AStateThatIsEndedMayStillAnswer) {
  open();
  state().addAll({1});
  state().onDelete = [one = &state()] { one->done(); };
  stop(kFirstState);
  EXPECT_EQ(told(), "1 . | other");
  open();
  state().onDelete = [one = &state()] { one->addAll({1, 2}), one->done(); };
  getall.reset();
  EXPECT_EQ(alive(), 0U);
}

// Service hooks that end what they are called for.

TEST_F(GetallLife, TheServiceEndsWithinItsHooks) {
  const End ends[] = {[this] { getall.reset(); }, [this] { cm.reset(); }};
  const message commands[] = {command(cmd::getAll), command(cmd::getCount),
                              command(cmd::getObj, {{key::objectId, 1}}),
                              command(cmd::getObj, {{key::objectId, 2}})};
  for (const auto& end : ends)
    for (const auto& request : commands) {
      restartAll();
      addItems(1);
      getall->onCount = [&](const message&) { return end(), 1U; };
      getall->onMissing = [&](std::uint32_t) { return end(), message(); };
      getall->onAdjust = [&](CfgMan::Iterator, message&) { end(); };
      send(request, {{5}, {}});
      EXPECT_TRUE(!getall || !cm);
      EXPECT_EQ(told(), "");
      kit->advance(1000);
    }
}

}  // namespace
