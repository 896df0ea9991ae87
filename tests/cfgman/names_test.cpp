// Default names, and ids.
#include "tests/support/cfgman_fixture.h"

using namespace test;

namespace {

class CfgManNames : public CfgManTest {
 protected:
  std::string nameOf(std::uint32_t id) const { return cm->find(id)->config.get(key::name); }
};

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

class CfgManIds : public CfgManTest {};

TEST_F(CfgManIds, AReplacedAllocatorGivesNoIdTwice) {
  EXPECT_EQ(cm->alloc, nullptr);
  EXPECT_EQ(cm->allocMin, kNoId);
  EXPECT_EQ(cm->allocMax, 0u);
  set(1, {{key::name, "refused"}});  // even this one makes it
  ASSERT_NE(cm->alloc, nullptr);
  EXPECT_EQ(cm->alloc->min(), 1u);
  EXPECT_EQ(cm->alloc->max(), 0xfffffffdu);
  for (const auto id : {1u, 2u, 3u}) EXPECT_EQ(add(), id);
  cm->setAllocator(2, 5);
  EXPECT_EQ(cm->allocMin, 2u);
  EXPECT_EQ(cm->allocMax, 5u);
  EXPECT_EQ(add(), 4u);
  EXPECT_EQ(cm->plant(false, nullptr).item()->id, 5u);
  EXPECT_EQ(ask(cmd::addObj), nv::errorMsg(err::idInUse, ""));
}

}  // namespace
