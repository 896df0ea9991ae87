/// The VLANs service without its process: what it refuses, keeps, tells and writes.

#include "examples/vlans/vlans.h"

#include <algorithm>

#include "examples/vlans/vlan.h"
#include "tests/examples/service_test.h"

namespace vlans {
namespace {

using nv::testkit::BusPeer;

class VlansTest : public ServiceTest<Vlans> {
 protected:
  VlansTest() {
    setLink("eth0", "up");
    setLink("eth1", "down");
    start();
  }

  void start(std::vector<std::string> devices = {"eth0", "eth1"}) {
    make(Box{std::move(devices), file, directory.path(), false});
    kit->listen(101);
    service->open(101);
  }
  void setLink(const std::string& device, const std::string& state) {
    fs::create_directories(directory / device);
    std::ofstream(directory.path() / device / "operstate") << state << '\n';
  }

  static std::string text(const message& vlan) {
    const auto id = std::to_string(vlan.get(key::objectId));
    if (vlan.get(key::absent) != 0) return id + " gone";
    return id + ' ' + vlan.get(key::name) + ' ' + std::to_string(vlan.get(kVid)) + ' ' +
           vlan.get(kParent) + (vlan.get(kUp) ? " up" : " down");
  }
  template <class Messages>
  static std::string texts(const Messages& messages) {
    std::string all;
    for (const auto& msg : messages) all += (all.empty() ? "" : ", ") + text(message(msg));
    return all;
  }
  /// All VLANs in their order, "1 lan 1 eth0 up, 2 ...".
  std::string list() { return texts(ask(cmd::getAll).get(key::objects)); }
  /// The first lines of each VLAN in the file.
  std::string summary() {
    std::istringstream in(fileText());
    std::string found, line;
    while (std::getline(in, line))
      if (line.starts_with("# ") && !line.starts_with("# Written")) found += line.substr(2) + ";";
    return found;
  }

  // A subscriber at the other end of a connection.
  std::unique_ptr<BusPeer> subscribe(message wanted = {}) {
    auto peer = kit->connect();
    wanted.insert(key::command, cmd::subscribe).insert(key::tag, 9);
    wanted.insert_vector(key::route, 101);
    peer->send(wanted);
    kit->settle();
    peer->received();
    return peer;
  }
  std::string told(BusPeer& peer) {
    kit->settle();
    return texts(peer.received());
  }
};

const std::string kBuiltInVlans = "1 lan 1 eth0 up, 2 wan 2 eth1 down";

TEST_F(VlansTest, FaultsAreRefusedWithWordsThatSayWhatIsWrongAndChangeNothing) {
  kit->settle();
  const auto before = stores.records("vlans");
  const struct {
    message fields;
    std::string outcome;
  } cases[] = {
      {{}, "a VLAN needs a vid from 1 to 4094, this one has 0"},
      {{{kVid, 4095}}, "a VLAN needs a vid from 1 to 4094, this one has 4095"},
      {{{kVid, 2}, {kParent, "eth1"}}, "vid 2 on eth1 is taken by object 2"},
      {{{kVid, 7}, {kParent, "eth0;reboot\n"}}, "there is no device \"eth0;reboot?\""},
      {{{kVid, 7}, {key::name, "wan"}}, "the name \"wan\" is taken by object 2"},
      {{{kVid, 7}, {key::name, "eth1"}}, "the name \"eth1\" is that of a device"},
      {{{kVid, 7}, {key::name, ""}}, "an interface needs a name"},
      {{{kVid, 7}, {key::name, "a;reboot"}},
       "\"a;reboot\" is no interface name: it may hold letters, digits, '-', '_' and '.' only"},
      {{{kVid, 7}, {key::name, "-a"}},
       "\"-a\" is no interface name: it begins with neither a letter nor a digit"},
      {{{kVid, 7}, {key::name, "a234567890123456"}},
       "\"a234567890123456\" is no interface name: it has more than 15 characters"},
      {{{kVid, 7}, {kComment, "x\nauto y"}}, "a comment is one line without control characters"},
  };
  for (const auto& [fields, expected] : cases) EXPECT_EQ(add(fields), expected);
  EXPECT_EQ(set(2, {{kVid, 1}, {kParent, "eth0"}}), "vid 1 on eth0 is taken by object 1");
  EXPECT_EQ(move(2, 99), "there is no object 99 to stand before");
  EXPECT_EQ(list(), kBuiltInVlans);
  EXPECT_EQ(stores.records("vlans"), before);
}

TEST_F(VlansTest, TheFileTellsIfupdownOfEachVlanInTheOrderThatTheUserWants) {
  remove(2);
  add({{kVid, 7}, {kComment, "office \\"}});
  EXPECT_EQ(kit->seen().undos.back().description, "vlan1 (VLAN 7 on eth0) added");
  EXPECT_EQ(fileText(),
            "# Written by the vlans service. Changes made here are lost.\n"
            "\n# lan (VLAN 1 on eth0)\nauto lan\niface lan inet manual\n"
            "    pre-up ip link add link eth0 name lan type vlan id 1\n    up ip link set lan up\n"
            "    down ip link set lan down\n    post-down ip link delete lan\n"
            "\n# office \\: vlan1 (VLAN 7 on eth0)\nauto vlan1\niface vlan1 inet manual\n"
            "    pre-up ip link add link eth0 name vlan1 type vlan id 7\n"
            "    up ip link set vlan1 up\n    down ip link set vlan1 down\n"
            "    post-down ip link delete vlan1\n");
  add({{kVid, 8}});
  move(3, 1);
  set(1, {{kDisabled, true}});
  for (int starts = 0; starts < 2; ++starts) {
    EXPECT_EQ(summary(), "office \\: vlan1 (VLAN 7 on eth0);vlan2 (VLAN 8 on eth0);");
    fs::remove(file);
    start();
  }
}

TEST_F(VlansTest, AFileThatCannotBeWrittenIsTriedAgain) {
  fs::remove(file);
  fs::create_directory(file);
  remove(2);
  fs::remove(file);
  kit->settle();
  EXPECT_FALSE(fs::exists(file)) << "not at once: the disk may need its time";
  kit->advance(Vlans::kRetryInterval);
  EXPECT_EQ(summary(), "lan (VLAN 1 on eth0);");
}

TEST_F(VlansTest, ARemovedFieldIsEmptyAndNotMissing) {
  set(1, {{kComment, "x"}, {kDisabled, true}});
  message removal;
  removal[key::removals].insert({kComment.uid(), kDisabled.uid()});
  EXPECT_EQ(set(1, removal), "ok");
  const auto vlan = ask(cmd::getObj, 1);
  EXPECT_TRUE(vlan.has(kComment) && vlan.get(kComment).empty());
  EXPECT_TRUE(vlan.has(kDisabled) && !vlan.get(kDisabled));
}

TEST_F(VlansTest, ALinkThatGoesDownIsToldToAllWhoSeeItsVlans) {
  add({{kVid, 7}});
  const auto all = subscribe(), mine = subscribe({{kParent, "eth0"}}),
             others = subscribe({{kParent, "eth1"}});
  kit->seen().clear();
  setLink("eth0", "down");
  kit->advance(Vlans::kPollInterval);
  EXPECT_EQ(told(*all), "1 lan 1 eth0 down, 3 vlan1 7 eth0 down");
  EXPECT_EQ(told(*mine), "1 lan 1 eth0 down, 3 vlan1 7 eth0 down");
  EXPECT_EQ(told(*others), "");
  EXPECT_TRUE(kit->seen().storeOps.empty());
  kit->advance(10 * Vlans::kPollInterval);
  EXPECT_EQ(told(*all), "") << "nothing has changed since";
}

TEST_F(VlansTest, WhoNamesAParentHearsOfItsVlansComingInChangingAndLeaving) {
  const auto mine = subscribe({{kParent, "eth1"}});
  add({{kVid, 7}});
  EXPECT_EQ(told(*mine), "2 wan 2 eth1 down") << "it is followed by another one now";
  const std::pair<message, std::string> changes[] = {
      {{{kVid, 8}}, ""},
      {{{kParent, "eth1"}}, "3 vlan1 8 eth1 down"},
      {{{kComment, "x"}}, "3 vlan1 8 eth1 down"},
      {{{kParent, "eth0"}}, "3 vlan1 8 eth0 up"},
      {{{kComment, "y"}}, ""},
  };
  for (const auto& [change, expected] : changes) {
    set(3, change);
    EXPECT_EQ(told(*mine), expected);
  }
  remove(2);
  EXPECT_EQ(told(*mine), "2 gone");
}

// A mirror kept the id of a VLAN that had gone as the next one, when the order came from the store.
TEST_F(VlansTest, AfterARestartWhoBecomesTheLastIsToldOf) {
  start();
  const auto all = subscribe();
  remove(2);
  EXPECT_EQ(told(*all), "2 gone, 1 lan 1 eth0 up");
  EXPECT_EQ(ask(cmd::getObj, 1).get(key::nextId), nv::kNoId);
}

TEST_F(VlansTest, WhatIsOnADeviceThatIsMissingNowStaysConfigured) {
  start({"eth0"});
  EXPECT_EQ(list(), kBuiltInVlans);
  EXPECT_EQ(set(2, {{kComment, "waiting"}}), "ok");
  EXPECT_EQ(set(2, {{kParent, "eth0"}}), "ok");
  EXPECT_EQ(set(2, {{kParent, "eth1"}}), "there is no device \"eth1\"");
}

/// Commands at random, some of them undone at once, with restarts, against the order as a list.
TEST_F(VlansTest, RandomChangesUndosAndRestartsKeepEachVlanAndItsPlace) {
  Random random;
  SCOPED_TRACE(random.seed());
  std::vector<std::uint32_t> order{1, 2};
  const auto at = [&](std::uint32_t id) { return std::find(order.begin(), order.end(), id); };
  for (int step = 0; step < 600; ++step) {
    const auto id = 1 + random.below(8),
               next = random.below(3) == 0 ? nv::kNoId : 1 + random.below(8);
    const bool isThere = at(id) != order.end();
    const bool isPlace = next == nv::kNoId || at(next) != order.end();
    const auto before = list();
    const auto orderBefore = order;
    message fields;
    std::string got, expected = "ok";
    switch (random.below(4)) {
      case 0:
        if (isThere || !isPlace) continue;
        fields = {{kVid, 100 + id}, {key::nextId, next}};
        // A built-in one would take up its old name, which may be another one's now.
        if (id <= 2) fields.insert(key::name, "built-in-" + std::to_string(id));
        got = add(fields, id);
        order.insert(at(next), id);
        break;
      case 1:
        if (!isThere || !isPlace) continue;
        got = move(id, next);
        if (next == id) break;
        order.erase(at(id));
        order.insert(at(next), id);
        break;
      case 2:
        got = set(id, {{kVid, 200 + random.below(20)}});
        if (!isThere || got.find("taken") != got.npos) expected = got;
        break;
      default:
        if (!isThere || order.size() == 1) continue;
        got = remove(id);
        order.erase(at(id));
    }
    ASSERT_EQ(got, expected) << "step " << step << ", object " << id;
    if (!kit->seen().undos.empty() && random.below(3) == 0) {
      ASSERT_EQ(undo(), "ok");
      order = orderBefore;
      ASSERT_EQ(list(), before) << "undone in step " << step;
    }
    if (random.below(40) == 0) {
      const auto all = list();
      start();
      ASSERT_EQ(list(), all) << "started again in step " << step;
    }
    std::string expectedIds;
    for (const auto one : order)
      expectedIds += (expectedIds.empty() ? "" : " ") + std::to_string(one);
    ASSERT_EQ(ids(), expectedIds) << "step " << step;
  }
}

}  // namespace
}  // namespace vlans
