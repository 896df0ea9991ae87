// How a state is made, and which manager a service answers for.
#include "tests/support/getall_fixture.h"

using namespace test;

namespace {

using GetallMaking = GetallTest;
using GetallManagers = GetallTest;

TEST_F(GetallMaking, AServiceThatMakesNoStateIsAnError) {
  GetallState alone;
  const std::function<GetallState*()> services[] = {
      [] { return nullptr; },
      [&] { return &alone; },
      [] { return delete new TestState, nullptr; },
      [] { return new TestState, nullptr; },
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
  // A state that no owner has made is full and takes nothing.
  alone.add(message{{key::objectId, 1}}.flat());
  alone.done();
  EXPECT_TRUE(alone.full());
}

TEST_F(GetallMaking, AServiceMayGoOnWithAnOldState) {
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

  getall->onNewState = [] {
    auto* const old = TestState::alive.front();
    (new TestState)->onDelete = [old] { delete old; };
    return old;
  };
  open();
  EXPECT_EQ(told(), "error 12") << "it ended with the one that was not meant";
  EXPECT_EQ(alive(), 0U);
}

TEST_F(GetallMaking, OfTwoNewStatesTheFirstIsTheOne) {
  TestState* spare = nullptr;
  getall->onNewState = [&] {
    auto* const made = new TestState;
    spare = new TestState;
    askOn(1);
    return made;
  };
  open();
  EXPECT_EQ(told(), "error 4") << "one that is being made is not found";
  state().addAll({1});
  spare->addAll({2});
  EXPECT_EQ(toldAfter(100), "1 >s1");
  delete spare;
}

TEST_F(GetallMaking, TheServiceMayEndWhileItMakesAState) {
  getall->onNewState = [this] {
    auto* const made = new TestState;
    getall.reset();
    return made;
  };
  open();
  EXPECT_EQ(alive(), 0U);
}

TEST_F(GetallManagers, WithoutItsServiceAManagerAnswersItself) {
  addItems(2);
  open();
  getall.reset();
  EXPECT_EQ(toldAfter(1000), "");
  open();
  EXPECT_EQ(told(), "1 2 .");
  EXPECT_EQ(cm->handler->objectCount(), 2U);
}

TEST_F(GetallManagers, WithoutItsManagerAServiceIsQuiet) {
  open();
  state().addAll({1});
  cm.reset();
  EXPECT_EQ(toldAfter(1000), "");
  EXPECT_EQ(alive(), 1U);
  state().addAll({1, 2});
  state().done();
  EXPECT_FALSE(getall->handleCmd(command(cmd::getAll)));
}

TEST_F(GetallManagers, AManagerThatIsNoLongerItsOwnAnswersItself) {
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

TEST_F(GetallManagers, AServiceWithoutManagerGetsOneOfItsOwn) {
  getall->setCm(nullptr);
  EXPECT_EQ(getall->handler(), nullptr);
  auto* const own = getall->cm();
  EXPECT_NE(own, cm.get());
  own->setHandler(6);
  EXPECT_EQ(getall->handler(), own->handler);
  kit->ask(*own->handler, command(cmd::getAll), {{5}, {}});
  EXPECT_EQ(toldAfter(100), ">s1");
  getall->setCm(cm.get());
  getall->setCm(nullptr);
  EXPECT_EQ(getall->cm(), own) << "it has one, not one each time";
}

TEST_F(GetallManagers, ARequestersEndOnTheBusEndsItsIterations) {
  kit->listen(5);
  auto peer = kit->connect();
  peer->send(command(cmd::getAll, {{key::tag, 1}, {key::route, Route{5}}}));
  kit->settle();
  EXPECT_EQ(alive(), 1U);
  peer->close();
  kit->settle();
  EXPECT_EQ(alive(), 0U);
}

}  // namespace
