// Default names, and the numbers of places.
#include "tests/support/cfgman_fixture.h"

using namespace test;

namespace {

class CfgManNames : public CfgManTest {
 protected:
  std::string nameOf(std::uint32_t id) const { return cm->find(id)->config.get(key::name); }
};

TEST_F(CfgManNames, CountWhateverAHookMakesOfThem) {
  configure = [this] {
    cm->namePrefix = "vlan";
    cm->applyItem = [](CfgMan*, CfgMan::Item* item, vset<unsigned>&, message& reply) {
      if (item->config.get(key::name) != "VLAN2") return;
      item->config.insert(key::name, "vlan2");
      reply = nv::failedMsg("taken");
    };
  };
  for (const auto kind : {Kind::unordered, Kind::ordered}) {
    startEmpty(kind);
    for (const auto id : {1u, 2u}) EXPECT_EQ(nameOf(add()), "vlan" + std::to_string(id));
    EXPECT_TRUE(nv::isError(ask(cmd::addObj, {{key::name, "VLAN2"}})));
    EXPECT_EQ(cm->generateDefaultName(), "vlan3");
    set(2, {{key::name, "office"}});
    EXPECT_EQ(cm->generateDefaultName(), "vlan2");
  }
}

TEST_F(CfgManNames, AreOneAboveTheHighest) {
  const struct {
    std::string prefix;
    std::vector<std::string> names;
    std::string expected;
  } cases[] = {
      {"vlan", {}, "vlan1"},
      {"vlan", {"vlan7", "vlan10"}, "vlan11"},
      {"vlan", {"vlan1", "vlan00"}, "vlan101"},
      {"vlan", {"vlanx", "vl", "vlan", "vlan-3", "vlan 4", "vlan5a", "lan8", ""}, "vlan1"},
      {"vlan", {"vlan\xd9\xa1", "Vlan9", "vlan4"}, "vlan5"},
      {"vlan", {"vlan4294967295"}, "vlan4294967296"},
      {"vlan", {"vlan" + std::string(100, '9')}, "vlan1" + std::string(100, '0')},
      {"eth1", {"eth19"}, "eth210"},
      {"eth9", {"eth99"}, "eth010"},
      {"99", {"999"}, "0010"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.expected);
    startEmpty(Kind::ordered);
    for (const auto& name : one.names) add({{key::name, name}});
    cm->namePrefix = one.prefix;
    EXPECT_EQ(nameOf(add()), one.expected);
  }
}

TEST_F(CfgManNames, AreGivenToWhatHasNoneAndShallHaveOne) {
  cm->namePrefix = "_vlan";
  EXPECT_FALSE(cm->find(add())->config.has(key::name));
  cm->namePrefix = "vlan";
  EXPECT_EQ(nameOf(add({{key::name, ""}})), "");
  set(1, {{key::cfgFlagA, true}});
  EXPECT_EQ(nameOf(1), "vlan1");
  set(1, {{key::removals, {key::name.uid()}}});
  EXPECT_EQ(nameOf(1), "vlan2") << "the old name counts until the change is done";
  cm->makeName = [] { return ""; };
  EXPECT_TRUE(cm->find(add())->config.has(key::name));
}

// The numbers of places.

class CfgManPositions : public CfgManTest {
 protected:
  CfgManPositions() { start(Kind::ordered); }

  /// The numbers along the order, hexadecimal.
  std::string positions() const {
    std::ostringstream all;
    for (const auto id : iterated())
      all << (all.view().empty() ? "" : " ") << std::hex << cm->find(id)->ord->position;
    return all.str();
  }
};

TEST_F(CfgManPositions, AreTakenAtTheEndsAndMissingInBetween) {
  const struct {
    message change;
    const char* positions;
    bool valid;
  } steps[] = {
      {command(cmd::addObj), "80000000", true},
      {command(cmd::addObj), "80000000 80000002", true},
      {command(cmd::addObj, {{key::nextId, 1}}), "7ffffffe 80000000 80000002", true},
      {command(cmd::removeObj, {{key::objectId, 1}}), "7ffffffe 80000002", true},
      {command(cmd::addObj, {{key::nextId, 2}}), "7ffffffe ffffffff 80000002", false},
      {command(cmd::moveObj, {{key::objectId, 1}}), "7ffffffe 80000002 80000004", false},
  };
  for (const auto& step : steps) {
    ask(step.change);
    EXPECT_EQ(positions(), step.positions);
    EXPECT_EQ(cm->positionsValid, step.valid);
  }
  cm->updatePositions();
  EXPECT_EQ(positions(), "80000000 80000002 80000004");
  EXPECT_TRUE(cm->positionsValid);
  add({{key::nextId, 3}});
  cm->updatePositions();
  EXPECT_EQ(positions(), "7ffffffe 80000000 80000002 80000004") << "valid already";

  start(Kind::unordered);
  cm->positionsValid = false;
  cm->updatePositions();
  EXPECT_FALSE(cm->positionsValid);
}

TEST_F(CfgManPositions, RunOutAtEitherEnd) {
  const struct {
    std::uint32_t neighbour, next;
    const char* expected;
  } cases[] = {
      {0xffffffef, kNoId, "ffffffef fffffff1"},
      {0xfffffff0, kNoId, "fffffff0 ffffffff"},
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

}  // namespace
