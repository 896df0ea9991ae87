// States, the service and the manager ended in any order, and from within anything.
#include "platform/timer.h"
#include "tests/support/getall_fixture.h"

using namespace test;
namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::message;

namespace {

class GetallLife : public GetallTest {
 protected:
  struct Ending {
    const char* how;
    std::function<void()> end;
  };
  /// What ends the first state and, some of it, others. Each leaves no state of route [5].
  std::vector<Ending> endings() {
    return {
        {"deleted", [this] { delete &state(); }},
        {"stopped", [this] { getall->handleCmd(stopRequest(kFirstState)); }},
        {"gone", [this] { getall->handleCmd(stopRequest(nv::kNoId)); }},
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
    if (getall) getall->handleCmd(stopRequest(nv::kNoId));
  }
  void restartAll() {
    getall.reset();
    ASSERT_EQ(alive(), 0U);
    restart();
    getall = std::make_unique<TestGetall>();
    getall->setCm(cm.get());
  }
  /// For each ending: opens a state, lets `arrange` put the ending where it belongs, and lets
  /// `happen` lead there.
  void forEachEnding(const std::function<void(const Ending&)>& arrange,
                     const std::function<void()>& happen) {
    for (const auto& ending : endings()) {
      SCOPED_TRACE(ending.how);
      restartAll();
      open();
      arrange(ending);
      happen();
      EXPECT_EQ(alive(), 0U);
      kit->advance(1000);
    }
  }
};

TEST_F(GetallLife, AStateEndsWithinMore) {
  forEachEnding([&](const Ending& ending) { state().onMore = ending.end; },
                [&] {
                  askOn(1);
                  EXPECT_EQ(told(), ">s1") << "only the older request was answered";
                });
}

TEST_F(GetallLife, AStateEndsWithinBeforeReply) {
  forEachEnding(
      [&](const Ending& ending) { state().onReply = [end = ending.end](message&) { end(); }; },
      [&] { EXPECT_EQ(toldAfter(100), "") << "the reply goes with the state"; });
  forEachEnding(
      [&](const Ending& ending) { state().onReply = [end = ending.end](message&) { end(); }; },
      [&] {
        askOn(1);
        EXPECT_EQ(told(), "") << "so does the next request";
      });
}

TEST_F(GetallLife, AStateEndsWithinItsReply) {
  for (const bool asksAgain : {false, true})
    for (const auto& ending : endings()) {
      if (ending.how == std::string("deleted after the manager")) continue;
      SCOPED_TRACE(ending.how);
      restartAll();
      open();
      const OnReply watch(ending.end);
      if (asksAgain)
        askOn(1);
      else
        state().done();
      EXPECT_EQ(told(), asksAgain ? ">s1" : ".");
      EXPECT_EQ(alive(), 0U);
    }
}

TEST_F(GetallLife, ARequestMadeWithinAReplyIsKept) {
  open();
  {
    const OnReply watch([this] { askOn(1); });
    EXPECT_EQ(toldAfter(100), ">s1");
  }
  EXPECT_EQ(toldAfter(100), ">s1") << "waits like any other";
  EXPECT_EQ(toldAfter(1000), "");
}

TEST_F(GetallLife, ARequestMadeWithinBeforeReplyIsKept) {
  open();
  state().onReply = [this](message&) { askOn(1, {{key::getFlags, 7}}); };
  EXPECT_EQ(toldAfter(100), ">s1");
  kit->advance(100);
  ASSERT_EQ(kit->seen().replies.size(), 1U);
  EXPECT_EQ(kit->seen().replies[0].request.get(key::getFlags), 7U);
  told();

  askOn(1, {{key::getFlags, 1}});
  state().onReply = [this](message&) { askOn(1, {{key::getFlags, 2}}); };
  askOn(1, {{key::getFlags, 3}});
  kit->advance(100);
  std::vector<std::uint32_t> answered;
  for (const auto& reply : kit->seen().replies)
    answered.push_back(reply.request.get(key::getFlags));
  EXPECT_EQ(answered, (std::vector<std::uint32_t>{1, 2, 3}));
}

TEST_F(GetallLife, AStateEndsWithinATimerOrAnAdd) {
  forEachEnding([&](const Ending&) {},
                [&] {
                  const nv::Timer timer(50, endings()[0].end);
                  kit->advance(50);
                });
  for (const auto& ending : endings()) {
    SCOPED_TRACE(ending.how);
    restartAll();
    open({{key::maxPerReply, 1}});
    state().addAll({1});
    state().onReply = [end = ending.end](message&) { end(); };
    state().addAll({2});
    EXPECT_EQ(alive(), 0U);
  }
}

TEST_F(GetallLife, StatesEndWithinEachOthersDestructors) {
  const struct {
    const char* how;
    std::function<void()> end;
  } cases[] = {
      {"delete the other", [] { delete TestState::alive.back(); }},
      {"drop the route", [this] { drop(); }},
      {"end the service", [this] { getall.reset(); }},
      {"end the manager", [this] { cm.reset(); }},
  };
  const std::function<void()> beginnings[] = {
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

// Making states.

TEST_F(GetallLife, AServiceThatMakesNoStateIsAnError) {
  GetallState alone;
  const std::function<GetallState*()> services[] = {
      [] { return nullptr; },
      [&] { return &alone; },
      [] { return delete new TestState, nullptr; },
      [this] { return gone({5}), nullptr; },
      [this] { return gone({5}), new TestState; },
      [this] {
        auto* const made = new TestState;
        return gone({5}), made;
      },
      [] {
        auto* const made = new TestState;
        delete made;
        return made;
      },
  };
  for (std::size_t k = 0; k < std::size(services); ++k) {
    SCOPED_TRACE(k);
    getall->onNewState = services[k];
    open();
    EXPECT_EQ(told(), "error 12");
    EXPECT_EQ(alive(), 0U);
    EXPECT_EQ(GetallState().impl, nullptr) << "the record is not handed to the next one";
  }
  getall->onNewState = nullptr;
  open();
  EXPECT_EQ(toldAfter(100), ">s1") << "no id is lost";
}

TEST_F(GetallLife, AServiceMayGoOnWithAnOldState) {
  open();
  toldAfter(100);
  addItems(2);
  getall->onNewState = [] { return TestState::alive.front(); };
  open();
  EXPECT_EQ(toldAfter(100), "1 2 >s1");
  EXPECT_EQ(alive(), 1U);
  open();
  open();
  EXPECT_EQ(told(), "1 2 1 2 >s1") << "who waits there is answered first";
}

TEST_F(GetallLife, OfTwoNewStatesTheFirstIsTheOne) {
  TestState* spare = nullptr;
  getall->onNewState = [&] {
    auto* const made = new TestState;
    spare = new TestState;
    return made;
  };
  open();
  state().addAll({1});
  spare->addAll({2});
  EXPECT_EQ(toldAfter(100), "1 >s1");
  delete spare;
}

TEST_F(GetallLife, ARequestForAStateThatIsBeingMadeFindsNone) {
  getall->onNewState = [this] { return askOn(1), new TestState; };
  open();
  EXPECT_EQ(told(), "error 4");
  EXPECT_EQ(toldAfter(100), ">s1");
}

TEST_F(GetallLife, TheServiceMayEndWhileItMakesAState) {
  getall->onNewState = [this] {
    auto* const made = new TestState;
    getall.reset();
    return made;
  };
  open();
  EXPECT_EQ(alive(), 0U);
}

// Service hooks that end what they are called for.

TEST_F(GetallLife, TheServiceEndsWithinItsHooks) {
  const std::function<void()> ends[] = {[this] { getall.reset(); }, [this] { cm.reset(); }};
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

// Managers.

TEST_F(GetallLife, WithoutItsServiceAManagerAnswersItself) {
  addItems(2);
  open();
  getall.reset();
  EXPECT_EQ(toldAfter(1000), "");
  open();
  EXPECT_EQ(told(), "1 2 .");
  EXPECT_EQ(cm->handler->objectCount(), 2U);
  EXPECT_EQ(ask(cmd::getObj, {{key::objectId, 7}}), nv::errorMsg(err::noSuchItem, ""));
}

TEST_F(GetallLife, WithoutItsManagerAServiceIsQuiet) {
  open();
  state().addAll({1});
  cm.reset();
  EXPECT_EQ(toldAfter(1000), "");
  EXPECT_EQ(alive(), 1U);
  state().addAll({1, 2});
  state().done();
  EXPECT_EQ(getall->handler(), nullptr);
  EXPECT_FALSE(getall->handleCmd(command(cmd::getAll)));
}

TEST_F(GetallLife, AManagerThatIsNoLongerItsOwnAnswersItself) {
  addItems(1);
  CfgMan other(&tasks);
  other.setHandler(6);
  open();
  getall->setCm(&other);
  EXPECT_EQ(toldAfter(100), "1 >s1") << "an iteration goes on with the new manager";
  open();
  EXPECT_EQ(told(), "1 .");
  kit->ask(*other.handler, command(cmd::getAll), {{5}, {}});
  EXPECT_EQ(toldAfter(100), ">s2");

  getall->setCm(nullptr);
  EXPECT_EQ(getall->handleCmGet(1, 5), message());
  kit->ask(*other.handler, command(cmd::getCount), {{5}, {}});
  EXPECT_EQ(told(), "count 0");
  getall.reset();
}

TEST_F(GetallLife, AServiceWithoutManagerGetsOneOfItsOwn) {
  getall->setCm(nullptr);
  EXPECT_EQ(getall->handler(), nullptr);
  auto* const own = getall->cm();
  EXPECT_NE(own, cm.get());
  EXPECT_EQ(getall->cm(), own);
  own->setHandler(6);
  EXPECT_EQ(getall->handler(), own->handler);
  kit->ask(*own->handler, command(cmd::getAll), {{5}, {}});
  EXPECT_EQ(toldAfter(100), ">s1");

  getall->setCm(cm.get());
  getall->setCm(nullptr);
  EXPECT_EQ(getall->cm(), own) << "it has one, not one each time";
  kit->ask(*own->handler, command(cmd::getCount), {{5}, {}});
  EXPECT_EQ(told(), "count 4294967295");
}

TEST_F(GetallLife, ARequestersEndOnTheBusEndsItsIterations) {
  kit->listen(5);
  auto peer = kit->connect();
  auto request = command(cmd::getAll, {{key::tag, 1}});
  peer->send(request.insert(key::route, Route{5}));
  kit->settle();
  EXPECT_EQ(alive(), 1U);
  peer->close();
  kit->settle();
  EXPECT_EQ(alive(), 0U);
}

}  // namespace
