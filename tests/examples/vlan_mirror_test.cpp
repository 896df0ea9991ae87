/// The mirror without a process: what it makes of what it is told.

#include "examples/vlans/vlan_mirror.h"

#include "cfgman/item.h"
#include "examples/vlans/vlan.h"
#include "tests/examples/service_test.h"

namespace vlans {
namespace {

message vlan(std::uint32_t id, const std::string& comment) {
  return {{key::objectId, id},
          {key::name, "vlan" + std::to_string(id)},
          {kComment, comment},
          {key::nextId, nv::kNoId},
          {kUp, true}};
}

class Mirror : public ServiceTest<VlanMirror> {
 protected:
  Mirror() { start(); }

  void start() {
    make();
    kit->seen().answersFollows = true;
    service->open(102, 101);
    EXPECT_EQ(kit->seen().follows.back().target, message({{key::route, {101}}}));
  }
  void tell(const std::vector<message>& messages) {
    for (const auto& msg : messages) kit->seen().follows.back().deliver(msg);
  }
  /// What it has after all that was told has taken effect, "1=a 2=b". The store has it too.
  std::string has() {
    kit->settle();
    std::string all, stored;
    for (const auto [id, item] : service->manager().items)
      all += std::to_string(id) + "=" + item->config.get(kComment) + ' ';
    for (const auto& [id, record] : stores.records("vlans"))
      stored += std::to_string(id) + "=" + record.get(kComment) + ' ';
    EXPECT_EQ(stored, all);
    return all;
  }
};

TEST_F(Mirror, AfterARestartItAnswersAtOnceAndDropsWhatTheFirstSetDoesNotName) {
  tell({vlan(1, "a"), vlan(2, "b"), vlan(3, "c"), {}});
  EXPECT_EQ(has(), "1=a 2=b 3=c ");
  start();
  EXPECT_EQ(ask(cmd::getObj, 2).get(kComment), "b");
  tell({vlan(2, "b"), vlan(3, "new"), vlan(4, "d")});
  EXPECT_EQ(has(), "1=a 2=b 3=new 4=d ") << "the set is not complete";
  tell({{}});
  EXPECT_EQ(has(), "2=b 3=new 4=d ");
  tell({{{key::objectId, 2}, {key::absent, 1}}});
  EXPECT_EQ(has(), "3=new 4=d ");
  tell({vlan(5, "e"), {}});  // another set, as after a break
  EXPECT_EQ(has(), "3=new 4=d 5=e ");
}

TEST_F(Mirror, WhatComesAgainRightAfterTheFirstSetStays) {
  tell({vlan(1, "a"), vlan(2, "b"), {}});
  start();
  // All of it before any of it takes effect.
  tell({vlan(2, "b"), {}, vlan(1, "again")});
  EXPECT_EQ(has(), "1=again 2=b ");
}

TEST_F(Mirror, KeepsTheStateOfALinkButDoesNotStoreItAndTakesNoChangeFromAnybodyElse) {
  tell({vlan(1, "a")});
  EXPECT_EQ(has(), "1=a ");
  EXPECT_TRUE(ask(cmd::getObj, 1).get(kUp));
  EXPECT_FALSE(stores.get("vlans", 1).has(kUp));
  for (const auto code : {cmd::addObj, cmd::setObj, cmd::removeObj, cmd::moveObj})
    EXPECT_EQ(outcome(ask(code, 1)), "this is a mirror: change what it shows");
  EXPECT_EQ(has(), "1=a ");
}

}  // namespace
}  // namespace vlans
