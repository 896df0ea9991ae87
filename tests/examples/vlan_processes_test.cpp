/// The VLANs service and its mirror as processes, either of which is killed at any time.

#include <map>

#include "examples/vlans/vlan.h"
#include "platform/follow.h"
#include "tests/examples/process_test.h"
#include "tests/support/random.h"

namespace vlans {
namespace {

constexpr std::uint32_t kService = 101, kMirror = 102;

class VlanProcesses : public ProcessTest {
 protected:
  VlanProcesses() {
    nv::connectBus(place.bus());
    EXPECT_TRUE(service.start());
    EXPECT_TRUE(mirror.start());
  }

  static void change(unsigned code, std::uint32_t id, message fields = {}) {
    ask({kService}, fields.insert(key::command, code).insert(key::objectId, id));
  }
  static std::uint32_t add(std::uint32_t vid) {
    return ask({kService}, {{key::command, cmd::addObj}, {kVid, vid}})
        .get(key::objectId, nv::kNoId);
  }
  /// All objects, by id, when they are on disk.
  static std::map<std::uint32_t, message> allOf(std::uint32_t address) {
    std::map<std::uint32_t, message> objects;
    const message request{{key::command, cmd::getAll}, {key::settled, true}};
    for (const auto& flat : ask({address}, request).get(key::objects)) {
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

  ServiceProcess service{place,
                         place.folder() / "vlans.db",
                         {CONFKIT_VLANS, "--interfaces-file", (place.folder() / "vlans").string(),
                          "--device-states", place.folder().string()}};
  ServiceProcess mirror{place, place.folder() / "mirror.db", {CONFKIT_VLAN_MIRROR}};
  unsigned heard = 0;
};

TEST_F(VlanProcesses, AMirrorAnswersWithoutTheServiceAndFindsItAgain) {
  const auto gone = add(7), kept = add(8);
  awaitInStep();
  const auto before = allOf(kService);
  service.end(SIGKILL);
  mirror.end(SIGKILL);
  ASSERT_TRUE(mirror.start());
  EXPECT_EQ(allOf(kMirror).size(), before.size());
  EXPECT_EQ(allOf(kMirror).at(kept).get(kVid), 8U);
  ASSERT_TRUE(service.start());
  EXPECT_EQ(allOf(kService), before) << "all that was acknowledged";
  change(cmd::removeObj, gone);
  awaitInStep();
  EXPECT_FALSE(allOf(kMirror).contains(gone));
}

TEST_F(VlanProcesses, RandomChangesAndKillsLeaveTheMirrorInStep) {
  Random random;
  SCOPED_TRACE(random.seed());
  for (int round = 0; round < 8 && !HasFailure(); ++round) {
    for (unsigned k = random.below(12); k-- > 0;) {
      const auto id = 1 + random.below(12);
      switch (random.below(4)) {
        case 0: add(1 + random.below(30)); break;
        case 1: change(cmd::removeObj, id); break;
        case 2: change(cmd::setObj, id, {{kComment, std::to_string(round)}}); break;
        default: change(cmd::moveObj, id, {{key::nextId, 1 + random.below(12)}});
      }
      if (random.below(8) != 0) continue;
      auto& victim = random.below(2) == 0 ? service : mirror;
      victim.end(SIGKILL);
      // What vanishes while a mirror is away it is to drop.
      if (&victim == &mirror) change(cmd::removeObj, 1 + random.below(12));
      ASSERT_TRUE(victim.start()) << victim.said();
    }
    if (allOf(kService).empty()) add(40);
    awaitInStep();
  }
}

}  // namespace
}  // namespace vlans
