// Who is told of which change.
#include <map>

#include "tests/support/cfgman_watchers.h"

using namespace test;

namespace {

constexpr auto all = [](unsigned, const message&) { return true; };
constexpr auto none = [](unsigned, const message&) { return false; };
constexpr auto big = [](unsigned, const message& msg) { return msg.get(key::name) == "big"; };
constexpr auto isUp = [](unsigned, const message& msg) { return msg.get(key::stateFlag); };

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

  /// Without `accepts`: a plain one.
  Filter* subscribe(const char* name = "plain", Filter::Accepts accepts = {},
                    std::uint32_t flags = 5) {
    auto* const made = next_ = accepts ? new Filter({}, flags, std::move(accepts)) : nullptr;
    bool isPlain = true;
    EXPECT_EQ(cm->handler->subscribe({}, isPlain), made);
    EXPECT_EQ(isPlain, made == nullptr);
    names_[made] = name;
    return made;
  }
  /// Since the last call: "plain 1, a 1 gone".
  std::string told() {
    std::string text;
    for (const auto& one : kit->seen().notifies) {
      text += (text.empty() ? "" : ", ") + names_[one.cookie] + " " + std::to_string(one.id) +
              (one.removed ? " gone" : "");
      EXPECT_EQ(one.handler, cm->handler);
      EXPECT_TRUE(one.extra.empty());
    }
    kit->seen().clear();
    return text;
  }

  std::string gets;

 private:
  Filter* next_ = nullptr;
  std::map<void*, std::string> names_;
};

TEST_F(CfgManNotify, WhoHasUnsubscribedIsNotTold) {
  cm->handler->unsubscribe({}, subscribe("one", all));
  subscribe("two", all);
  subscribe("none", none);
  subscribe("three", all);
  cm->mkSubscr = nullptr;
  subscribe();  // without a factory, too
  add();
  EXPECT_EQ(told(), "plain 1, two 1, three 1");
  cm->handler->unsubscribe({}, nullptr);
  add();
  EXPECT_EQ(told(), "two 2, three 2");
  EXPECT_EQ(gets, "");
}

TEST_F(CfgManNotify, TheBasicFactoryTakesFlagsFromTheRequest) {
  cm->mkSubscr = mkSubscrBasic;
  const message plain{{key::name, "q"}}, seven{{key::getFlags, 7}};
  for (const auto& [request, flags] : {std::pair(plain, 0x00fe001du), std::pair(seven, 7u)}) {
    bool isPlain = true;
    auto* const made = static_cast<CfgMan::Subscription*>(cm->handler->subscribe(request, isPlain));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->request, request);
    EXPECT_EQ(cm->handler->subscriberFlags(request, made), flags);
    EXPECT_TRUE(made->interesting(1, {}));
  }
}

TEST_F(CfgManNotify, SubscribersOnTheBusAreSentTheObjectWithTheirFlags) {
  cm->mkSubscr = mkSubscrBasic;
  unsigned flushes = 0;
  cm->flushHook = [&] {
    ++flushes;
    cm->handler->flushNotifies();  // what it replaces
  };
  kit->listen(5);
  const auto peer = kit->connect();
  peer->send(command(cmd::subscribe,
                     {{key::route, {5}}, {key::tag, 1}, {key::getFlags, nv::kConfigOnlyBit}}));
  kit->settle();
  EXPECT_FALSE(nv::isError(peer->received().at(0)));
  flushes = 0;
  add({{key::name, "a"}});
  kit->settle();
  EXPECT_EQ(flushes, 1u);
  EXPECT_EQ(gets, std::to_string(nv::kConfigOnlyBit) + " ");
  const auto told = peer->received();
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].get(key::name), "a");
  EXPECT_FALSE(told[0].has(key::stateFlag));
}

// Around a change that no update makes.

class CfgManGuard : public CfgManNotify {
 protected:
  CfgManGuard() {
    for (const auto* name : {"small", "big"}) add({{key::name, name}});
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
  subscribe();
  EXPECT_EQ(change(1, up), "a 1, b 1, c 1, plain 1");
  EXPECT_EQ(gets, "5 7 | 5 7 ");
  EXPECT_EQ(change(1, up), "");
  EXPECT_EQ(gets, "5 7 | 5 7 ");
  // An empty answer is one, too.
  cm->doGet = [&](auto*, auto, auto flags, const auto&) {
    gets += std::to_string(flags) + " ";
    return message();
  };
  EXPECT_EQ(change(1, down), "");
  EXPECT_EQ(gets, "5 7 | 5 7 ");
}

TEST_F(CfgManGuard, WatchesNothingWithoutAHandlerOrAnId) {
  subscribe();
  EXPECT_EQ(change(kNoId, down), "");
  const NotifyGuard nobody(nullptr, 1);
  CfgMan bare(&tasks);
  bare.doGet = cm->doGet;
  { const NotifyGuard guard(&bare, 1); }
  EXPECT_EQ(gets, "| ");
}

TEST_F(CfgManGuard, TellsOfWhatEntersChangesAndLeavesAFilter) {
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
  subscribe();
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
  {
    const NotifyGuard guard(cm.get(), 1);
    subscribe("late", all);
    cm->find(1)->state = down;
  }
  EXPECT_EQ(told(), "") << "the first of all hears nothing of a change under way";
  auto* const first = subscribe("first", all);
  {
    const NotifyGuard guard(cm.get(), 1);
    cm->handler->unsubscribe({}, first);  // the next record may stand where this one was
    subscribe("second", none);
    subscribe("third", all);
    subscribe();
  }
  EXPECT_EQ(told(), "third 1, plain 1");
}

}  // namespace
