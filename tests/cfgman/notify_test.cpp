// Who is told of which change.
#include <map>

#include "tests/support/cfgman_watchers.h"

using namespace test;
namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::message;

namespace {

/// Subscribers are given names, and the fixture says who was told.
class CfgManNotify : public CfgManTest {
 protected:
  CfgManNotify() {
    start(Kind::unstored);
    cm->mkSubscr = [this](const message&, bool) { return std::exchange(next_, nullptr); };
    cm->doGet = [this](CfgMan* manager, std::uint32_t id, std::uint32_t flags, const message& cmd) {
      gets += std::to_string(flags) + " ";
      return CfgMan::defDoGet(manager, id, flags, cmd);
    };
  }

  Filter* subscribe(const char* name, Filter::Accepts accepts, std::uint32_t flags = 5) {
    auto* const made = next_ = new Filter({}, flags, std::move(accepts));
    bool isPlain = true;
    EXPECT_EQ(cm->handler->subscribe({}, isPlain), made);
    EXPECT_FALSE(isPlain);
    names_[made] = name;
    return made;
  }
  void subscribePlain() {
    bool isPlain = true;
    EXPECT_EQ(cm->handler->subscribe({}, isPlain), nullptr);
    EXPECT_TRUE(isPlain);
  }
  /// A client that has subscribed.
  std::unique_ptr<nv::testkit::BusPeer> subscribeByBus(std::uint32_t flags) {
    kit->listen(5);
    auto peer = kit->connect();
    peer->send(command(cmd::subscribe, {{key::route, {5}}, {key::tag, 1}, {key::getFlags, flags}}));
    kit->settle();
    EXPECT_FALSE(nv::isError(peer->received().at(0)));
    return peer;
  }
  void unsubscribe(CfgMan::Subscription* one) { cm->handler->unsubscribe({}, one); }

  /// Since the last call: "plain 1, a 1 gone".
  std::string told() {
    std::string text;
    for (const auto& one : kit->seen().notifies) {
      text += (text.empty() ? "" : ", ") + (one.cookie ? names_[one.cookie] : "plain") + " " +
              std::to_string(one.id) + (one.removed ? " gone" : "");
      EXPECT_EQ(one.handler, cm->handler);
      EXPECT_TRUE(one.extra.empty());
    }
    kit->seen().clear();
    return text;
  }
  std::string toldOf(unsigned code, Fields fields) {
    ask(code, fields);
    return told();
  }

  std::string gets;

 private:
  Filter* next_ = nullptr;
  std::map<void*, std::string> names_;
};

constexpr auto all = [](unsigned, const message&) { return true; };
constexpr auto none = [](unsigned, const message&) { return false; };
constexpr auto big = [](unsigned, const message& msg) { return msg.get(key::name) == "big"; };

TEST_F(CfgManNotify, UpdatesTellWhomTheyInterestPlainSubscribersFirst) {
  subscribe("all", all);
  subscribe("big", big);
  subscribePlain();
  subscribePlain();
  subscribe("none", none);
  const struct {
    unsigned code;
    Fields fields;
    const char* told;
  } rows[] = {
      {cmd::addObj, {{key::name, "small"}}, "plain 1, all 1"},
      {cmd::setObj, {{key::objectId, 1}, {key::name, "big"}}, "plain 1, all 1, big 1"},
      {cmd::setObj, {{key::objectId, 1}, {key::cfgFlagA, true}}, "plain 1, all 1, big 1"},
      {cmd::setObj, {{key::objectId, 1}, {key::name, "big"}}, ""},
      {cmd::setObj, {{key::objectId, 1}, {key::stateFlag, false}}, "plain 1, all 1, big 1"},
      {cmd::setObj, {{key::objectId, 1}, {key::name, "small"}}, "plain 1, all 1, big 1"},
      {cmd::setObj, {{key::objectId, 1}, {key::cfgFlagA, false}}, "plain 1, all 1"},
      {cmd::setObj, {{key::objectId, 1}, {key::name, "big"}}, "plain 1, all 1, big 1"},
      {cmd::removeObj, {{key::objectId, 1}}, "plain 1 gone, all 1 gone, big 1 gone"},
      {cmd::removeObj, {{key::objectId, 1}}, ""},
      {cmd::addObj, {{key::name, "big"}}, "plain 1, all 1, big 1"},
  };
  for (const auto& row : rows) EXPECT_EQ(toldOf(row.code, row.fields), row.told);
  EXPECT_EQ(gets, "");
}

TEST_F(CfgManNotify, FiltersAreAskedOfConfigurationsThatExist) {
  std::string asked;
  subscribe("x", [&](unsigned id, const message& cfg) {
    EXPECT_FALSE(cfg.has(key::stateFlag));
    EXPECT_EQ(cfg.get(key::absent), 0u);
    asked += std::to_string(id) + cfg.get(key::name) + " ";
    return true;
  });
  ask(cmd::addObj, {{key::name, "a"}});
  ask(cmd::setObj, {{key::objectId, 1}, {key::name, "b"}});
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(asked, "1a 1a 1b 1b ");
}

TEST_F(CfgManNotify, WhoHasUnsubscribedIsNotTold) {
  subscribePlain();
  auto* const one = subscribe("one", all);
  subscribe("two", all);
  unsubscribe(one);
  EXPECT_EQ(toldOf(cmd::addObj, {}), "plain 1, two 1");
  unsubscribe(nullptr);
  EXPECT_EQ(toldOf(cmd::addObj, {}), "two 2");
}

TEST_F(CfgManNotify, WithoutAFactoryAllArePlain) {
  cm->mkSubscr = nullptr;
  subscribePlain();
  EXPECT_EQ(toldOf(cmd::addObj, {}), "plain 1");
}

TEST_F(CfgManNotify, TheBasicFactoryTakesFlagsFromTheRequest) {
  cm->mkSubscr = mkSubscrBasic;
  const message plainRequest{{key::name, "q"}};
  for (const auto& [request, flags] :
       {std::pair(plainRequest, 0x00fe001du), std::pair(message({{key::getFlags, 7}}), 7u)}) {
    bool isPlain = true;
    auto* const made = static_cast<CfgMan::Subscription*>(cm->handler->subscribe(request, isPlain));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->flags, flags);
    EXPECT_EQ(made->request, request);
    EXPECT_EQ(cm->handler->subscriberFlags(request, made), flags);
    EXPECT_TRUE(made->interesting(1, {}));
  }
}

TEST_F(CfgManNotify, SubscribersOnTheBusAreSentTheObjectWithTheirFlags) {
  cm->mkSubscr = mkSubscrBasic;
  const auto peer = subscribeByBus(nv::kConfigOnlyBit);
  add({{key::name, "a"}});
  kit->settle();
  EXPECT_EQ(gets, std::to_string(nv::kConfigOnlyBit) + " ");
  const auto told = peer->received();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].get(key::name), "a");
  EXPECT_FALSE(told[0].has(key::stateFlag));
}

TEST_F(CfgManNotify, AFlushHookTakesThePlaceOfSending) {
  unsigned flushes = 0;
  cm->flushHook = [&] {
    ++flushes;
    cm->handler->flushNotifies();  // what it replaces
  };
  const auto peer = subscribeByBus(5);
  flushes = 0;
  add();
  kit->settle();
  EXPECT_EQ(flushes, 1u);
  EXPECT_EQ(gets, "5 ");
}

// Around a change that no update makes.

class CfgManGuard : public CfgManNotify {
 protected:
  CfgManGuard() {
    add({{key::name, "small"}});
    add({{key::name, "big"}});
    kit->seen().clear();
  }
  /// Live state of object `id` changes inside a guard.
  std::string change(std::uint32_t id, const message& state) {
    gets.clear();
    {
      const NotifyGuard guard(cm.get(), id);
      gets += "| ";
      if (auto* const item = cm->find(id)) item->state.merge(state);
    }
    return told();
  }
  const message up{{key::stateFlag, true}}, down{{key::stateFlag, false}};
};

TEST_F(CfgManGuard, OneGetForEachFlagsWordServesAll) {
  EXPECT_EQ(change(1, down), "");
  EXPECT_EQ(gets, "| ");  // nobody to tell
  subscribe("a", all);
  subscribe("b", all, 7);
  subscribe("c", all);
  subscribePlain();
  EXPECT_EQ(change(1, up), "a 1, b 1, c 1, plain 1");
  EXPECT_EQ(gets, "5 7 | 5 7 ");
  EXPECT_EQ(change(1, up), "");
  EXPECT_EQ(gets, "5 7 | 5 7 ");
}

TEST_F(CfgManGuard, WatchesNothingWithoutAHandlerOrAnId) {
  subscribePlain();
  EXPECT_EQ(change(nv::kNoId, down), "");
  EXPECT_EQ(gets, "| ");
  const NotifyGuard nobody(nullptr, 1);
  CfgMan bare(&tasks);
  bare.doGet = cm->doGet;
  { const NotifyGuard guard(&bare, 1); }
  EXPECT_EQ(gets, "| ");
}

TEST_F(CfgManGuard, TellsOfWhatEntersChangesAndLeavesAFilter) {
  const auto isUp = [](unsigned, const message& msg) { return msg.get(key::stateFlag); };
  subscribe("up", isUp);
  EXPECT_EQ(change(1, down), "up 1");
  EXPECT_EQ(change(1, {{key::cfgText, "x"}}), "");
  EXPECT_EQ(change(1, up), "up 1");
  EXPECT_EQ(change(1, {{key::cfgText, "y"}}), "up 1");
  EXPECT_EQ(change(9, up), "");  // absent before and after
}

TEST_F(CfgManGuard, TellsOfWhatComesAndGoes) {
  subscribe("all", all);
  subscribe("big", big);
  subscribePlain();
  const auto inside = [&](std::uint32_t id, unsigned code, Fields fields) {
    const NotifyGuard guard(cm.get(), id);
    ask(code, fields);
    kit->seen().clear();  // of the update itself
  };
  inside(3, cmd::addObj, {{key::name, "small"}});
  EXPECT_EQ(told(), "all 3, plain 3");
  inside(2, cmd::removeObj, {{key::objectId, 2}});
  EXPECT_EQ(told(), "all 2 gone, big 2 gone, plain 2 gone");
}

TEST_F(CfgManGuard, SubscribersThatComeInBetweenAreToldWhatInterestsThem) {
  auto* const first = subscribe("first", all);
  {
    const NotifyGuard guard(cm.get(), 1);
    unsubscribe(first);  // the next record may stand where this one was
    subscribe("second", none);
    subscribe("third", all);
    subscribePlain();
  }
  EXPECT_EQ(told(), "third 1, plain 1");
}

TEST_F(CfgManGuard, TheFirstSubscriberOfAllHearsNothingOfAChangeUnderWay) {
  {
    const NotifyGuard guard(cm.get(), 1);
    subscribe("late", all);
    cm->find(1)->state = down;
  }
  EXPECT_EQ(told(), "");
}

TEST_F(CfgManGuard, AnEmptyAnswerIsAnAnswer) {
  subscribe("a", all);
  subscribe("b", all);
  unsigned calls = 0;
  cm->doGet = [&](auto*, auto, auto, const auto&) { return ++calls, message(); };
  EXPECT_EQ(change(1, down), "");
  EXPECT_EQ(calls, 2u);
}

}  // namespace
