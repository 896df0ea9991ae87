/// The VLANs service and its mirror as processes, either of which is killed at any time.

#include <csignal>
#include <functional>
#include <map>

#include <gtest/gtest.h>

#include "examples/vlans/vlan.h"
#include "platform/client.h"
#include "platform/commands.h"
#include "platform/follow.h"
#include "platform/looper.h"
#include "platform/post.h"
#include "platform/timer.h"
#include "tests/support/random.h"
#include "tests/system/service_process.h"

namespace vlans {
namespace {

namespace key = nv::key;
using nv::message;
using nv::testkit::ServiceProcess;

constexpr std::uint32_t kService = 101, kMirror = 102;
constexpr unsigned kPatience = 60000;  // milliseconds

class VlanProcesses : public ::testing::Test {
 protected:
  VlanProcesses() { nv::connectBus(place.bus()); }
  ~VlanProcesses() override { nv::getLooper()->assemble({}); }

  /// Runs the loop until something has happened; false when it does not.
  static bool until(const std::function<bool()>& happened) {
    bool late = false;
    const nv::Timer guard(kPatience, [&late] { late = true; });
    while (!happened() && !late) nv::getLooper()->runOnce(true);
    return happened();
  }
  static message ask(std::uint32_t address, message request) {
    request.insert_vector(key::route, address);
    message answer;
    bool answered = false;
    const nv::Post post(
        request, [&](const message& reply) { answer = reply, answered = true; }, kPatience);
    until([&] { return answered; });
    return answer;
  }
  static message change(unsigned code, std::uint32_t id, message fields = {}) {
    fields.insert(key::command, code);
    if (id != nv::kNoId) fields.insert(key::objectId, id);
    return ask(kService, fields);
  }
  static std::uint32_t add(std::uint32_t vid) {
    return change(nv::cmd::addObj, nv::kNoId, {{kVid, vid}}).get(key::objectId, nv::kNoId);
  }
  /// All objects, by id, when they are on disk.
  static std::map<std::uint32_t, message> allOf(std::uint32_t address) {
    std::map<std::uint32_t, message> objects;
    const message request{{key::command, nv::cmd::getAll}, {key::settled, true}};
    for (const auto& flat : ask(address, request).get(key::objects)) {
      const message object(flat);
      objects.emplace(object.get(key::objectId), object);
    }
    return objects;
  }
  /// Waits until the mirror has what the service has. Each time the mirror says something is a
  /// chance.
  void awaitInStep() {
    void* const handle =
        nv::follow([this](const message&) { ++heard; }, {{key::route, {kMirror}}}, true);
    unsigned seen = 0;
    std::map<std::uint32_t, message> here, there;
    do {
      here = allOf(kService);
      there = allOf(kMirror);
      if (!here.empty() && here == there) break;
    } while (until([&] { return heard != seen; }) && (seen = heard, true));
    EXPECT_EQ(here, there);
    nv::stopFollow(handle);
  }

  nv::testkit::Place place;
  ServiceProcess service{place,
                         place.folder() / "vlans.db",
                         {CONFKIT_VLANS, "--interfaces-file", (place.folder() / "vlans").string(),
                          "--device-states", place.folder().string()}};
  ServiceProcess mirror{place, place.folder() / "mirror.db", {CONFKIT_VLAN_MIRROR}};
  unsigned heard = 0;
};

TEST_F(VlanProcesses, AMirrorThatWasKilledDropsWhatVanishedMeanwhile) {
  ASSERT_TRUE(service.start());
  ASSERT_TRUE(mirror.start());
  const auto gone = add(7), changed = add(8);
  awaitInStep();
  mirror.end(SIGKILL);
  change(nv::cmd::removeObj, gone);
  change(nv::cmd::setObj, changed, {{kComment, "meanwhile"}});
  change(nv::cmd::moveObj, changed, {{key::nextId, 1}});
  ASSERT_TRUE(mirror.start());
  awaitInStep();
  const auto there = allOf(kMirror);
  EXPECT_FALSE(there.contains(gone));
  EXPECT_EQ(there.at(changed).get(kComment), "meanwhile");
}

TEST_F(VlanProcesses, AMirrorAnswersWithoutTheServiceAndFindsItAgain) {
  ASSERT_TRUE(service.start());
  ASSERT_TRUE(mirror.start());
  const auto gone = add(7), kept = add(8);
  awaitInStep();
  auto before = allOf(kService);
  service.end(SIGKILL);
  mirror.end(SIGKILL);
  ASSERT_TRUE(mirror.start());
  EXPECT_EQ(allOf(kMirror).size(), before.size());
  EXPECT_EQ(allOf(kMirror).at(kept).get(kVid), 8U);
  ASSERT_TRUE(service.start());
  EXPECT_EQ(allOf(kService), before) << "all that was acknowledged";
  change(nv::cmd::removeObj, gone);
  awaitInStep();
  EXPECT_FALSE(allOf(kMirror).contains(gone));
}

TEST_F(VlanProcesses, RandomChangesAndKillsLeaveTheMirrorInStep) {
  Random random;
  SCOPED_TRACE(random.seed());
  ASSERT_TRUE(service.start());
  ASSERT_TRUE(mirror.start());
  for (int round = 0; round < 8 && !HasFailure(); ++round) {
    for (unsigned k = random.below(12); k-- > 0;) {
      const auto id = 1 + random.below(12);
      switch (random.below(4)) {
        case 0: add(1 + random.below(30)); break;
        case 1: change(nv::cmd::removeObj, id); break;
        case 2: change(nv::cmd::setObj, id, {{kComment, std::to_string(round)}}); break;
        default: change(nv::cmd::moveObj, id, {{key::nextId, 1 + random.below(12)}});
      }
      if (random.below(8) != 0) continue;
      auto& victim = random.below(2) == 0 ? service : mirror;
      victim.end(SIGKILL);
      ASSERT_TRUE(victim.start()) << victim.said();
    }
    if (allOf(kService).empty()) add(40);
    awaitInStep();
  }
}

}  // namespace
}  // namespace vlans
