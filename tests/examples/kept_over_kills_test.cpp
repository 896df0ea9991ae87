/// The firewall and the identity as processes that are killed at any time: all that they have
/// answered is there again, and their files say it.

#include <csignal>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "examples/firewall/rule.h"
#include "examples/identity/settings.h"
#include "platform/client.h"
#include "platform/commands.h"
#include "platform/looper.h"
#include "platform/post.h"
#include "tests/support/random.h"
#include "tests/system/service_process.h"

namespace {

namespace key = nv::key;
using nv::message;
using nv::testkit::ServiceProcess;

constexpr unsigned kPatience = 60000;  // milliseconds

class KeptOverKills : public ::testing::Test {
 protected:
  KeptOverKills() { nv::connectBus(place.bus()); }
  ~KeptOverKills() override { nv::getLooper()->assemble({}); }

  static message ask(std::uint32_t address, unsigned command, message request = {}) {
    request.insert(key::command, command).insert_vector(key::route, address);
    message answer;
    bool answered = false;
    const nv::Post post(
        request, [&](const message& reply) { answer = reply, answered = true; }, kPatience);
    while (!answered) nv::getLooper()->runOnce(true);
    return answer;
  }
  static void kill(ServiceProcess& service) {
    service.end(SIGKILL);
    ASSERT_TRUE(service.start()) << service.said();
  }
  std::string fileText() const {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
  }

  nv::testkit::Place place;
  const std::filesystem::path file = place.folder() / "file";
};

TEST_F(KeptOverKills, TheOrderOfRulesWithThoseOfTheProgramBetween) {
  ServiceProcess service(place, place.storeFile(),
                         {CONFKIT_FIREWALL, "--ruleset-file", file.string()});
  Random random;
  SCOPED_TRACE(random.seed());
  ASSERT_TRUE(service.start());
  for (int round = 0; round < 6; ++round) {
    for (unsigned k = random.below(15); k-- > 0;) {
      const message object{{key::objectId, 1 + random.below(16)}};
      message spot{{key::nextId, 1 + random.below(16)}};
      message rule = spot;
      rule.insert(firewall::kAction, "drop");
      rule.insert(firewall::kSource, "192.0.2." + std::to_string(random.below(256)));
      spot.merge(object);
      switch (random.below(5)) {
        case 0: ask(103, nv::cmd::moveObj, spot); break;
        case 1: ask(103, nv::cmd::removeObj, object); break;
        default: ask(103, nv::cmd::addObj, rule);
      }
    }
    const auto before = ask(103, nv::cmd::getAll);
    ASSERT_FALSE(before.get(key::objects).empty());
    const auto text = fileText();
    std::filesystem::remove(file);
    kill(service);
    EXPECT_EQ(ask(103, nv::cmd::getAll), before) << service.said();
    EXPECT_EQ(fileText(), text);
  }
}

TEST_F(KeptOverKills, WhatEachPartySaysOfTheIdentity) {
  ServiceProcess service(place, place.storeFile(),
                         {CONFKIT_IDENTITY, "--identity-file", file.string()});
  ASSERT_TRUE(service.start());
  const auto set = [](std::uint32_t party, nv::string_id field, const std::string& value) {
    message request{{field, value}};
    if (party != nv::kNoId) request.insert(key::managedId, party);
    EXPECT_FALSE(nv::isError(ask(104, nv::cmd::set, request)));
  };
  set(identity::kAddressService, identity::kHostName, "dhcp-7");
  set(identity::kFleetController, identity::kLocation, "hall 3");
  set(nv::kNoId, identity::kHostName, "gate");
  const auto before = ask(104, nv::cmd::get);
  const auto text = fileText();
  EXPECT_NE(text.find("HOST_NAME=\"gate\"\nLOCATION=\"hall 3\"\n"), text.npos) << text;
  std::filesystem::remove(file);
  kill(service);
  EXPECT_EQ(ask(104, nv::cmd::get), before);
  EXPECT_EQ(fileText(), text);
}

}  // namespace
