// Default names, and the numbers of places.
#include <algorithm>
#include <vector>

#include "tests/support/cfgman_fixture.h"
#include "tests/support/cfgman_verify.h"
#include "tests/support/random.h"

using namespace test;
namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::message;

namespace {

using Names = std::vector<std::string>;

class CfgManNames : public CfgManTest {
 protected:
  std::string nameOf(std::uint32_t id) const { return cm->find(id)->config.get(key::name); }
};

TEST_F(CfgManNames, CountWhateverAHookMakesOfThem) {
  for (const auto kind : {Kind::unordered, Kind::ordered}) {
    configure = [this] {
      cm->namePrefix = "vlan";
      cm->applyItem = [](CfgMan*, CfgMan::Item* item, vset<unsigned>&, message& reply) {
        if (item->config.get(key::name) != "VLAN2") return;
        item->config.insert(key::name, "vlan2");
        reply = nv::failedMsg("taken");
      };
    };
    start(kind);
    add();
    add();
    EXPECT_EQ(nameOf(2), "vlan2");
    EXPECT_TRUE(nv::isError(ask(cmd::addObj, {{key::name, "VLAN2"}})));
    EXPECT_EQ(cm->generateDefaultName(), "vlan3");
    ask(cmd::setObj, {{key::objectId, 2}, {key::name, "office"}});
    EXPECT_EQ(cm->generateDefaultName(), "vlan2");
    for (const auto id : {1u, 2u}) ask(cmd::removeObj, {{key::objectId, id}});
  }
}

TEST_F(CfgManNames, AreForgottenWithAnItemThatAKeyTakesAway) {
  configure = [this] {
    cm->namePrefix = "vlan";
    cm->apply = [](CfgMan*, CfgMan::Item*, message& cfg, vset<unsigned>& keys, message&) {
      if (keys.has(1)) cfg.insert(key::absent, 1);
    };
  };
  start(Kind::ordered);
  for (int k = 0; k < 3; ++k) add();
  cm->scheduleUpdate(3, {}, {}, {1}, {});
  runAll();
  EXPECT_EQ(ids(), "1 2");
  EXPECT_EQ(cm->generateDefaultName(), "vlan3");
}

TEST_F(CfgManNames, AreOneAboveTheHighest) {
  const struct {
    std::string prefix;
    Names names;
    std::string expected;
  } cases[] = {
      {"vlan", {}, "vlan1"},
      {"vlan", {"vlan7", "vlan10"}, "vlan11"},
      {"vlan", {"vlan10", "vlan7"}, "vlan11"},
      {"vlan", {"vlan9"}, "vlan10"},
      {"vlan", {"vlan99"}, "vlan100"},
      {"vlan", {"vlan0"}, "vlan1"},
      {"vlan", {"vlan1", "vlan00"}, "vlan101"},
      {"vlan", {"vlan007"}, "vlan1008"},
      {"vlan", {"vlanx", "vl", "vlan", "vlan-3", "vlan 4", "vlan5a", "lan8", ""}, "vlan1"},
      {"vlan", {"vlan\xd9\xa1", "vlan4"}, "vlan5"},
      {"vlan", {"Vlan9", "vlan1", "xvlan8"}, "vlan2"},
      {"vlan", {"vlan4294967295"}, "vlan4294967296"},
      {"vlan", {"vlan" + std::string(100, '9')}, "vlan1" + std::string(100, '0')},
      {"eth1", {"eth19"}, "eth210"},
      {"eth1", {"eth1"}, "eth11"},
      {"eth9", {"eth99"}, "eth010"},
      {"9", {"99"}, "010"},
      {"99", {"999"}, "0010"},
      {"x9", {"x99"}, "x010"},
      {"a_", {"a_3"}, "a_4"},
  };
  for (const auto& one : cases)
    for (const auto kind : {Kind::unordered, Kind::ordered}) {
      SCOPED_TRACE(one.expected);
      startEmpty(kind);
      for (const auto& name : one.names) add({{key::name, name}});
      cm->namePrefix = one.prefix;
      EXPECT_EQ(cm->generateDefaultName(), one.expected);
      EXPECT_EQ(nameOf(add()), one.expected);
    }
}

TEST_F(CfgManNames, AreGivenToWhatHasNoneAndShallHaveOne) {
  cm->namePrefix = "_vlan";
  EXPECT_FALSE(cm->find(add())->config.has(key::name));
  cm->namePrefix = "vlan";
  EXPECT_EQ(nameOf(add({{key::name, ""}})), "");
  ask(cmd::setObj, {{key::objectId, 1}, {key::cfgFlagA, true}});
  EXPECT_EQ(nameOf(1), "vlan1");
  ask(cmd::setObj, {{key::objectId, 1}, {key::removals, {key::name.uid()}}});
  EXPECT_EQ(nameOf(1), "vlan2") << "the old name counts until the change is done";
  cm->makeName = [] { return "made"; };
  EXPECT_EQ(nameOf(add()), "made");
  cm->makeName = [] { return ""; };
  EXPECT_TRUE(cm->find(add())->config.has(key::name));
}

TEST_F(CfgManNames, CountAbsentItemsOfAnUnorderedManagerAndPlacedOnesOfAnOrdered) {
  for (const auto kind : {Kind::unordered, Kind::ordered}) {
    startEmpty(kind);
    cm->namePrefix = "vlan";
    auto* const item = cm->plant(false, this).item();
    ask(cmd::setObj, {{key::objectId, item->id}, {key::absent, 0}, {key::name, "vlan7"}});
    EXPECT_EQ(cm->generateDefaultName(), "vlan8");
    ask(cmd::removeObj, {{key::objectId, item->id}});
    EXPECT_EQ(cm->generateDefaultName(), kind == Kind::ordered ? "vlan1" : "vlan8");
    stop();
    delete item;
  }
}

// The rule as it is: look at every name.
std::string nextName(const std::string& prefix, const Names& names) {
  std::string best = prefix + "0";
  for (const auto& name : names) {
    if (name.size() <= prefix.size() || !name.starts_with(prefix)) continue;
    if (name.find_first_not_of("0123456789", prefix.size()) != std::string::npos) continue;
    if (name.size() > best.size() || (name.size() == best.size() && name >= best)) best = name;
  }
  for (auto at = best.size(); at-- > 0 && best[at] >= '0' && best[at] <= '9';) {
    if (best[at]++ != '9') break;
    best[at] = '0';
  }
  if (best[prefix.size()] == '0') best.insert(prefix.size(), "1");
  return best;
}

TEST_F(CfgManNames, FollowRandomRenamesMovesAndRemovals) {
  Random random;
  SCOPED_TRACE(random.seed());
  const std::string prefixes[] = {"v", "v", "v", "v1", "v9", ""};
  const auto anyName = [&] {
    std::string digits;
    for (auto count = random.below(5); count > 0; --count)
      digits += random.below(30) == 0 ? 'x'
                : random.below(2)     ? '9'
                                      : "0123456789"[random.below(10)];
    return "v" + digits;
  };
  start(Kind::ordered);
  for (int step = 0; step < 5000 && !HasFailure(); ++step) {
    const auto id = 1 + random.below(30);
    switch (random.below(12)) {
      case 0: cm->namePrefix = prefixes[random.below(6)]; break;
      case 1: restart(); break;
      case 2: ask(cmd::moveObj, {{key::objectId, id}, {key::nextId, 1 + random.below(30)}}); break;
      case 3:
      case 4:
      case 5: ask(cmd::removeObj, {{key::objectId, id}}); break;
      case 6: ask(cmd::setObj, {{key::objectId, id}, {key::removals, {key::name.uid()}}}); break;
      case 7: add(); break;
      case 8: add({{key::name, anyName()}, {key::dynamic, true}}); break;
      case 9: add({{key::objectId, id}, {key::name, anyName()}, {key::nextId, 1}}); break;
      default: ask(cmd::setObj, {{key::objectId, id}, {key::name, anyName()}});
    }
    Names names;
    for (const auto& [_, item] : cm->items) names.push_back(item->config.get(key::name));
    EXPECT_EQ(cm->generateDefaultName(), nextName(cm->namePrefix, names)) << "step " << step;
  }
}

// The numbers of places.

class CfgManPositions : public CfgManTest {
 protected:
  CfgManPositions() { start(Kind::ordered); }

  /// The numbers along the order, hexadecimal.
  std::string positions() const {
    std::ostringstream all;
    for (auto it = cm->begin(); it.item() != nullptr; it.next())
      all << (it == cm->begin() ? "" : " ") << std::hex << it.item()->ord->position;
    return all.str();
  }
};

TEST_F(CfgManPositions, AreTakenAtTheEndsAndMissingInBetween) {
  const struct {
    nv::message change;
    const char* positions;
    bool valid;
  } steps[] = {
      {command(cmd::addObj), "80000000", true},
      {command(cmd::addObj), "80000000 80000002", true},
      {command(cmd::addObj), "80000000 80000002 80000004", true},
      {command(cmd::addObj, {{key::nextId, 1}}), "7ffffffe 80000000 80000002 80000004", true},
      {command(cmd::removeObj, {{key::objectId, 2}}), "7ffffffe 80000000 80000004", true},
      {command(cmd::addObj), "7ffffffe 80000000 80000004 80000006", true},
      {command(cmd::addObj, {{key::nextId, 3}}), "7ffffffe 80000000 ffffffff 80000004 80000006",
       false},
      {command(cmd::moveObj, {{key::objectId, 5}}), "7ffffffe 80000000 80000004 80000006 80000008",
       false},
      {command(cmd::moveObj, {{key::objectId, 1}, {key::nextId, 4}}),
       "7ffffffc 7ffffffe 80000004 80000006 80000008", false},
  };
  for (const auto& step : steps) {
    ask(step.change);
    EXPECT_EQ(positions(), step.positions);
    EXPECT_EQ(cm->positionsValid, step.valid);
  }
  cm->updatePositions();
  EXPECT_EQ(positions(), "80000000 80000002 80000004 80000006 80000008");
  EXPECT_TRUE(cm->positionsValid);
}

TEST_F(CfgManPositions, RunOutAtEitherEnd) {
  const struct {
    std::uint32_t neighbour, next;
    const char* expected;
  } cases[] = {
      {0xffffffef, nv::kNoId, "ffffffef fffffff1"},
      {0xfffffff0, nv::kNoId, "fffffff0 ffffffff"},
      {0xffffffff, nv::kNoId, "ffffffff ffffffff"},
      {0x11, 1, "f 11"},
      {0x10, 1, "ffffffff 10"},
      {0xffffffff, 1, "fffffffd ffffffff"},
  };
  for (const auto& one : cases) {
    startEmpty(Kind::ordered);
    add();
    cm->find(1)->ord->position = one.neighbour;
    add({{key::nextId, one.next}});
    EXPECT_EQ(positions(), one.expected);
  }
}

TEST_F(CfgManPositions, AreRenumberedOnlyWhenTheyAreNotValid) {
  add();
  add({{key::nextId, 1}});
  cm->updatePositions();
  EXPECT_EQ(positions(), "7ffffffe 80000000");
  cm->positionsValid = false;
  cm->updatePositions();
  EXPECT_EQ(positions(), "80000000 80000002");
  start(Kind::unordered);
  cm->positionsValid = false;
  cm->updatePositions();
  EXPECT_FALSE(cm->positionsValid);
}

}  // namespace
