/// Services of the examples as processes: VLANs and their mirror, either of which is killed at any
/// time, and scripts that run.

#include <csignal>
#include <fstream>
#include <functional>
#include <map>

#include <gtest/gtest.h>

#include "examples/scripts/runner.h"
#include "examples/scripts/script_map.h"
#include "examples/vlans/vlan.h"
#include "platform/client.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/follow.h"
#include "platform/looper.h"
#include "platform/post.h"
#include "platform/run_request.h"
#include "platform/timer.h"
#include "tests/support/random.h"
#include "tests/system/service_process.h"

namespace {

namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::message;
using nv::testkit::ServiceProcess;
using Route = std::vector<std::uint32_t>;

constexpr unsigned kPatience = 60000;  // milliseconds

class ProcessTest : public ::testing::Test {
 protected:
  ProcessTest() { nv::connectBus(place.bus()); }
  ~ProcessTest() override { nv::getLooper()->assemble({}); }

  /// Runs the loop until something has happened; false when it does not.
  static bool until(const std::function<bool()>& happened) {
    bool late = false;
    const nv::Timer guard(kPatience, [&late] { late = true; });
    while (!happened() && !late) nv::getLooper()->runOnce(true);
    return happened();
  }
  /// Sends a request and does not wait for the answer.
  static nv::Post send(const Route& route, message request, message& answer) {
    request.insert(key::route, route);
    return {request, [&answer](const message& reply) { answer = reply; }, kPatience};
  }
  static message ask(const Route& route, const message& request) {
    message answer;
    const auto post = send(route, request, answer);
    until([&] { return !post.pending(); });
    return answer;
  }

  const nv::testkit::Place place;
};

constexpr std::uint32_t kService = 101, kMirror = 102;

class VlanProcesses : public ProcessTest {
 protected:
  VlanProcesses() {
    EXPECT_TRUE(service.start());
    EXPECT_TRUE(mirror.start());
  }

  static void change(unsigned code, std::uint32_t id, message fields = {}) {
    ask({kService}, fields.insert(key::command, code).insert(key::objectId, id));
  }
  static std::uint32_t add(std::uint32_t vid) {
    return ask({kService}, {{key::command, cmd::addObj}, {vlans::kVid, vid}})
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

TEST_F(VlanProcesses, RandomChangesAndKillsLeaveTheMirrorInStep) {
  Random random;
  SCOPED_TRACE(random.seed());
  for (int round = 0; round < 8 && !HasFailure(); ++round) {
    for (unsigned k = random.below(12); k-- > 0;) {
      const auto id = 1 + random.below(12);
      switch (random.below(4)) {
        case 0: add(1 + random.below(30)); break;
        case 1: change(cmd::removeObj, id); break;
        case 2: change(cmd::setObj, id, {{vlans::kComment, std::to_string(round)}}); break;
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

class ScriptProcess : public ProcessTest {
 protected:
  ScriptProcess() { EXPECT_TRUE(service.start()); }
  void add(const std::string& name, const std::string& source, std::uint32_t limit = kPatience) {
    EXPECT_FALSE(nv::isError(ask(kScripts, {{key::command, cmd::addObj},
                                            {key::name, name},
                                            {scripts::kSource, source},
                                            {scripts::kTimeLimit, limit}})));
  }
  static message runOf(const std::string& name) {
    return {{key::command, cmd::runScript},
            {key::name, name},
            {key::rights, 5},
            {key::scriptOrigin, "the test"}};
  }

  const Route kScripts{48, 101};
  ServiceProcess service{place, place.folder() / "scripts.db", {CONFKIT_SCRIPTS}};
};

TEST_F(ScriptProcess, ARunHasTheRightsTheOriginAndTheWordsOfItsRequest) {
  add("show", "echo \"$CONFKIT_RIGHTS, $CONFKIT_ORIGIN, $#, ${5000}\"; exit 3");
  std::vector<nv::flat_message> words;
  for (int k = 1; k <= 5000; ++k)
    words.push_back(message{{nv::run_key::word, std::to_string(k)}}.flat());
  const auto answer = ask(kScripts, runOf("show").insert(nv::run_key::arguments, words));
  EXPECT_FALSE(nv::isError(answer)) << nv::getError(answer);
  EXPECT_EQ(answer.get(nv::run_key::status), 3U);
  EXPECT_EQ(answer.get(nv::run_key::output), "5, the test, 5000, 5000\n");
}

TEST_F(ScriptProcess, OthersAreAnsweredWhileScriptsRun) {
  add("endless", "while :; do :; done", 2000);
  message late;
  const auto post = send(kScripts, runOf("endless"), late);
  add("quick", "echo done");
  EXPECT_EQ(ask(kScripts, runOf("quick")).get(nv::run_key::output), "done\n");
  EXPECT_TRUE(post.pending()) << "the endless one is still running";
  until([&] { return !post.pending(); });
  EXPECT_EQ(nv::getError(late), "script \"endless\" was killed: it ran longer than 2000 ms");
}

TEST_F(ScriptProcess, TooManyAtOneTimeAreRefusedAndTheNextOnesRunAgain) {
  add("slow", "sleep 1");
  std::vector<message> answers(scripts::Runner::kMostRuns + 4);
  std::vector<nv::Post> posts;
  for (auto& answer : answers) posts.push_back(send(kScripts, runOf("slow"), answer));
  unsigned refused = 0;
  for (std::size_t k = 0; k < posts.size(); ++k) {
    until([&] { return !posts[k].pending(); });
    unsigned code = 0;
    if (nv::isError(answers[k], &code) && code == nv::err::tooMany) ++refused;
  }
  EXPECT_EQ(refused, 4U);
  EXPECT_EQ(ask(kScripts, runOf("slow")).get(nv::run_key::status, 99), 0U);
}

}  // namespace
