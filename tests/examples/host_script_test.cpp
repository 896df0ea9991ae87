/// The script of a host: when it is run, with whose rights, and what an undo makes of it.

#include <gtest/gtest.h>

#include "examples/hosts/host_map.h"
#include "examples/support/addresses.h"
#include "platform/commands.h"
#include "platform/run_request.h"
#include "testing/kit.h"
#include "tests/support/temp_directory.h"

namespace hosts {
namespace {

namespace key = nv::key;
using nv::message;
using nv::testkit::Kit;

// The configuration of a script.
constexpr nv::u32_id kId{1}, kRights{2};
constexpr nv::string_id kSource{4};

class HostScript : public ::testing::Test {
 protected:
  HostScript() { start(); }
  ~HostScript() override { map.reset(); }

  void start() {
    map.reset();
    if (kit) kit->settle();
    kit.reset();
    kit = std::make_unique<Kit>(stores);
    map = std::make_unique<HostMap>(place / "hosts");
    map->init();
    nv::getLooper()->addHandler(100, map.get());
  }
  static message addressed(const std::string& address) {
    message fields;
    fields.insert(kAddresses, {examples::addressFrom(address).value()});
    return fields;
  }
  static message scripted(const message& script) {
    message fields;
    fields.insert(kScript, script);
    return fields;
  }
  std::string ask(unsigned code, message fields, std::uint32_t rights) {
    fields.insert(key::command, code);
    if (code != nv::cmd::addObj) fields.insert(key::objectId, 1);
    kit->seen().clear();
    const auto reply = kit->ask(*map, fields, {{0xcfff0001}, rights});
    kit->settle();
    return nv::isError(reply) ? nv::getError(reply) : "ok";
  }
  std::string set(const message& fields, std::uint32_t rights) {
    return ask(nv::cmd::setObj, fields, rights);
  }
  std::string add(message fields, std::uint32_t rights) {
    fields.merge(addressed("192.0.2.1"));
    fields.insert(kName, "nas");
    return ask(nv::cmd::addObj, fields, rights);
  }
  /// "<rights> <origin>: <words>" of the runs that the last request caused.
  std::string runs() {
    std::string all;
    for (const auto& request : kit->seen().sentMessages) {
      EXPECT_EQ(request.get(key::command), nv::cmd::runScript);
      all += std::to_string(request.get(key::rights)) + ' ' + request.get(key::scriptOrigin) + ':';
      for (const auto word : request.view(nv::run_key::arguments))
        all += ' ' + message(word).get(nv::run_key::word);
      all += ';';
    }
    return all;
  }

  TempDirectory place;
  nv::testkit::MemoryStores stores;
  std::unique_ptr<Kit> kit;
  std::unique_ptr<HostMap> map;
};

TEST_F(HostScript, RunsWhenTheAddressesChangeAndOnlyThen) {
  ASSERT_EQ(add(scripted({{kId, 7}}), 5), "ok");
  EXPECT_EQ(runs(), "") << "a new host";
  EXPECT_EQ(set({{kComment, "x"}}, 3), "ok");
  EXPECT_EQ(set(addressed("192.0.2.1"), 3), "ok");
  EXPECT_EQ(runs(), "") << "the same address";
  EXPECT_EQ(set(addressed("300::1"), 3), "ok");
  EXPECT_EQ(runs(), "5 user: nas 300::1;") << "with the rights of who set the script";
  EXPECT_EQ(kit->seen().sentMessages.front().get(key::objectId), 7U);
  EXPECT_EQ(set(addressed("ff02::1"), 3), "ff02::1 is a multicast address");
  EXPECT_EQ(runs(), "") << "refused";
  start();
  EXPECT_EQ(set(addressed("192.0.2.2"), nv::kSystemRights), "ok");
  EXPECT_EQ(runs(), "5 user: nas 192.0.2.2;") << "after a restart";
}

TEST_F(HostScript, IsNoneByDefaultAndAfterItsRemoval) {
  ASSERT_EQ(add({}, 5), "ok");
  EXPECT_EQ(set(addressed("192.0.2.2"), 5), "ok");
  EXPECT_EQ(runs(), "");
  EXPECT_EQ(set(scripted({{kId, 7}}), nv::kSystemRights), "ok");
  message removal;
  removal.insert_vector(key::removals, kScript.uid());
  EXPECT_EQ(set(removal, 5), "ok");
  EXPECT_EQ(set(addressed("192.0.2.3"), 5), "ok");
  EXPECT_EQ(runs(), "");
}

TEST_F(HostScript, ASourceNeverGainsRights) {
  ASSERT_EQ(add(scripted({{kSource, "reboot"}}), nv::kSystemRights), "ok");
  EXPECT_EQ(set(addressed("192.0.2.2"), nv::kSystemRights), "ok");
  EXPECT_EQ(runs(), "0 : nas 192.0.2.2;") << "a new one has none";
  EXPECT_EQ(set(scripted({{kId, 7}}), 5), "ok") << "a source without rights hinders nobody";
  EXPECT_EQ(set(addressed("192.0.2.3"), 7), "ok");
  EXPECT_EQ(runs(), "0 : nas 192.0.2.3;") << "nor does it give any";
}

TEST_F(HostScript, WhatHasMoreRightsThanTheUserCannotBecomeTheUsersSource) {
  ASSERT_EQ(add(scripted({{kId, 7}}), 6), "ok");
  EXPECT_EQ(set(scripted({{kSource, "reboot"}}), 2),
            "cannot change script source value with higher rights");
  EXPECT_EQ(set(scripted({{kId, 7}, {kRights, 0x7fffffff}}), 2), "cannot modify rights");
  EXPECT_EQ(set(scripted({{kId, 7}, {kSource, "reboot"}}), 7),
            "cannot set script id and source at the same time");
  EXPECT_EQ(set(addressed("192.0.2.2"), 2), "ok");
  EXPECT_EQ(runs(), "6 user: nas 192.0.2.2;") << "as it was";
  EXPECT_EQ(set(scripted({{kSource, "reboot"}}), 7), "ok");
  EXPECT_EQ(set(addressed("192.0.2.3"), 2), "ok");
  EXPECT_EQ(runs(), "6 user: nas 192.0.2.3;");
}

TEST_F(HostScript, WhoUndoesAChangeGivesTheScriptNoMoreThanTheirOwnRights) {
  ASSERT_EQ(add(scripted({{kId, 7}}), 6), "ok");
  ASSERT_EQ(set(scripted({{kId, 8}}), 6), "ok");
  ASSERT_EQ(kit->seen().undos.size(), 1U);
  const auto undo = kit->seen().undos.back().undo;
  EXPECT_EQ(ask(nv::cmd::setObj, undo, 1), "ok");
  EXPECT_EQ(set(addressed("192.0.2.2"), 1), "ok");
  EXPECT_EQ(runs(), "1 user: nas 192.0.2.2;");
  EXPECT_EQ(kit->seen().sentMessages.front().get(key::objectId), 7U);
}

}  // namespace
}  // namespace hosts
