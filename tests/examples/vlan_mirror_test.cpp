/// The mirror without a process: what it makes of what it is told.

#include "examples/vlans/vlan_mirror.h"

#include <memory>

#include <gtest/gtest.h>

#include "cfgman/cfg_handler.h"
#include "cfgman/item.h"
#include "examples/vlans/vlan.h"
#include "platform/commands.h"
#include "testing/kit.h"

namespace vlans {
namespace {

namespace key = nv::key;
using nv::message;
using nv::testkit::Kit;
using nv::testkit::MemoryStores;

class Mirror : public ::testing::Test {
 protected:
  Mirror() { start(); }
  ~Mirror() override { mirror.reset(); }

  void start() {
    mirror.reset();
    kit.reset();
    kit = std::make_unique<Kit>(stores);
    kit->seen().answersFollows = true;
    mirror = std::make_unique<VlanMirror>();
    mirror->open(102, 101);
  }
  void tell(const message& msg) { kit->seen().follows.back().deliver(msg); }
  static message vlan(std::uint32_t id, const std::string& comment) {
    return {{key::objectId, id},
            {key::name, "vlan" + std::to_string(id)},
            {kComment, comment},
            {key::nextId, nv::kNoId},
            {kUp, true}};
  }
  /// What it has after all that was told has taken effect: "1=a 2=b".
  std::string has() {
    kit->settle();
    std::string all;
    for (const auto [id, item] : mirror->manager().items)
      all += (all.empty() ? "" : " ") + std::to_string(id) + "=" + item->config.get(kComment);
    return all;
  }
  std::string stored() {
    kit->settle();
    std::string all;
    for (const auto& [id, record] : stores.records("vlans"))
      all += (all.empty() ? "" : " ") + std::to_string(id) + "=" + record.get(kComment);
    return all;
  }
  message ask(unsigned code, std::uint32_t id) {
    return kit->ask(*mirror->manager().handler, {{key::command, code}, {key::objectId, id}},
                    nv::testkit::user());
  }

  MemoryStores stores;
  std::unique_ptr<Kit> kit;
  std::unique_ptr<VlanMirror> mirror;
};

TEST_F(Mirror, FollowsTheServiceAtItsAddress) {
  EXPECT_EQ(kit->seen().follows.back().target, message({{key::route, {101}}}));
}

TEST_F(Mirror, AfterARestartItAnswersAtOnceAndDropsWhatTheFirstSetDoesNotName) {
  for (const auto& msg : {vlan(1, "a"), vlan(2, "b"), vlan(3, "c"), message()}) tell(msg);
  EXPECT_EQ(has(), "1=a 2=b 3=c");
  start();
  EXPECT_EQ(ask(nv::cmd::getObj, 2).get(kComment), "b");
  tell(vlan(2, "b"));
  tell(vlan(3, "new"));
  tell(vlan(4, "d"));
  EXPECT_EQ(has(), "1=a 2=b 3=new 4=d") << "the set is not complete";
  tell({});
  EXPECT_EQ(has(), "2=b 3=new 4=d");
  EXPECT_EQ(stored(), "2=b 3=new 4=d");
}

TEST_F(Mirror, WhatComesAgainRightAfterTheFirstSetStays) {
  for (const auto& msg : {vlan(1, "a"), vlan(2, "b"), message()}) tell(msg);
  has();
  start();
  // All of it before any of it takes effect.
  for (const auto& msg : {vlan(2, "b"), message(), vlan(1, "again")}) tell(msg);
  EXPECT_EQ(has(), "1=again 2=b");
  EXPECT_EQ(stored(), "1=again 2=b");
}

TEST_F(Mirror, AfterThatItRemovesWhatIsRemovedAndNothingElse) {
  for (const auto& msg : {vlan(1, "a"), vlan(2, "b"), message()}) tell(msg);
  EXPECT_EQ(has(), "1=a 2=b");
  tell({{key::objectId, 1}, {key::absent, 1}});
  EXPECT_EQ(has(), "2=b");
  for (const auto& msg : {vlan(3, "c"), message()}) tell(msg);  // another set, as after a break
  EXPECT_EQ(has(), "2=b 3=c");
}

TEST_F(Mirror, KeepsTheStateOfALinkButDoesNotStoreIt) {
  tell(vlan(1, "a"));
  kit->settle();
  EXPECT_TRUE(ask(nv::cmd::getObj, 1).get(kUp));
  EXPECT_FALSE(stores.get("vlans", 1).has(kUp));
}

TEST_F(Mirror, TakesNoChangeFromAnybodyElse) {
  tell(vlan(1, "a"));
  kit->settle();
  for (const auto code : {nv::cmd::addObj, nv::cmd::setObj, nv::cmd::removeObj, nv::cmd::moveObj})
    EXPECT_EQ(nv::getError(ask(code, 1)), "this is a mirror: change what it shows");
  EXPECT_EQ(has(), "1=a");
}

}  // namespace
}  // namespace vlans
