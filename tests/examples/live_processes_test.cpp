/// Neighbours and scripts as processes: clients that are killed in the middle, scripts that run.

#include <csignal>
#include <fstream>
#include <functional>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "examples/neighbours/neighbour.h"
#include "examples/scripts/runner.h"
#include "examples/scripts/script_map.h"
#include "platform/client.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/looper.h"
#include "platform/post.h"
#include "platform/run_request.h"
#include "platform/timer.h"
#include "tests/system/service_process.h"

namespace {

namespace key = nv::key;
namespace fs = std::filesystem;
using nv::message;
using nv::testkit::ServiceProcess;

constexpr unsigned kPatience = 60000;  // milliseconds

/// Runs the loop until something has happened; false when it does not.
bool until(const std::function<bool()>& happened) {
  bool late = false;
  const nv::Timer guard(kPatience, [&late] { late = true; });
  while (!happened() && !late) nv::getLooper()->runOnce(true);
  return happened();
}

/// The answers to requests that are all sent at once.
std::vector<message> ask(std::vector<message> requests, const std::vector<std::uint32_t>& route) {
  std::vector<message> answers(requests.size());
  std::vector<nv::Post> posts;
  std::size_t missing = requests.size();
  for (std::size_t k = 0; k < requests.size(); ++k) {
    requests[k].insert(key::route, route);
    posts.emplace_back(
        requests[k], [&, k](const message& reply) { answers[k] = reply, --missing; }, kPatience);
  }
  until([&] { return missing == 0; });
  return answers;
}
message askOne(const message& request, const std::vector<std::uint32_t>& route) {
  return ask({request}, route).front();
}

class LiveProcesses : public ::testing::Test {
 protected:
  ~LiveProcesses() override { nv::getLooper()->assemble({}); }
  nv::testkit::Place place;
};

class NeighbourProcess : public LiveProcesses {
 protected:
  NeighbourProcess() {
    fs::create_directory(tables);
    std::ofstream file(tables / "tcp");
    for (int k = 0; k < 50000; ++k)
      file << "0: 0100007F:0016 0100007F:0050 01 0:0 0:0 00000000 1000 0 1\n";
  }

  /// The tables that the service holds open.
  std::size_t openTables() const {
    std::size_t found = 0;
    for (const auto& entry :
         fs::directory_iterator("/proc/" + std::to_string(service.pid()) + "/fd")) {
      std::error_code closedMeanwhile;
      if (fs::read_symlink(entry.path(), closedMeanwhile).parent_path() == tables) ++found;
    }
    return found;
  }
  /// A client that asks for the first page and then does nothing any more.
  pid_t startIdleClient() const {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    const auto pid = ::fork();
    if (pid == 0) {
      nv::connectBus(place.bus());
      const auto reply = askOne({{key::command, nv::cmd::getAll}}, {kNeighbours});
      const char answered = reply.has(key::startId) ? 'y' : 'n';
      if (::write(ends[1], &answered, 1) == 1) ::pause();
      ::_exit(1);
    }
    ::close(ends[1]);
    char answered = 0;
    EXPECT_EQ(::read(ends[0], &answered, 1), 1);
    EXPECT_EQ(answered, 'y');
    ::close(ends[0]);
    return pid;
  }

  static constexpr std::uint32_t kNeighbours = 110;
  const fs::path tables = place.folder() / "net";
  ServiceProcess service{
      place, place.folder() / "neighbours.db", {CONFKIT_NEIGHBOURS, "--proc-net", tables.string()}};
};

TEST_F(NeighbourProcess, AClientKilledInTheMiddleOfAListLeavesNothingBehind) {
  ASSERT_TRUE(service.start());
  std::vector<pid_t> clients;
  for (int k = 0; k < 3; ++k) clients.push_back(startIdleClient());
  EXPECT_EQ(openTables(), 3U);
  for (const auto pid : clients) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
  }
  // The service learns of it in its own time; each answer shows that it has been awake.
  nv::connectBus(place.bus());
  const message count{{key::command, nv::cmd::getCount}};
  for (int k = 0; k < 1000 && openTables() > 0; ++k) askOne(count, {kNeighbours});
  EXPECT_EQ(openTables(), 0U);
  EXPECT_EQ(service.end(SIGTERM), 0);
}

class ScriptProcess : public LiveProcesses {
 protected:
  ScriptProcess() {
    EXPECT_TRUE(service.start());
    nv::connectBus(place.bus());
  }
  void add(const std::string& name, const std::string& source, std::uint32_t limit = kPatience) {
    EXPECT_FALSE(nv::isError(askOne({{key::command, nv::cmd::addObj},
                                     {key::name, name},
                                     {scripts::kSource, source},
                                     {scripts::kTimeLimit, limit}},
                                    kScripts)));
  }
  static message runOf(const std::string& name, std::uint32_t rights = 5) {
    return {{key::command, nv::cmd::runScript},
            {key::name, name},
            {key::rights, rights},
            {key::scriptOrigin, "the test"}};
  }

  const std::vector<std::uint32_t> kScripts{48, 101};
  ServiceProcess service{place, place.folder() / "scripts.db", {CONFKIT_SCRIPTS}};
};

TEST_F(ScriptProcess, ARunHasTheRightsTheOriginAndTheWordsOfItsRequest) {
  add("show", "echo \"$CONFKIT_RIGHTS, $CONFKIT_ORIGIN, $#, ${5000}\"; exit 3");
  std::vector<nv::flat_message> words;
  for (int k = 1; k <= 5000; ++k)
    words.push_back(message{{nv::run_key::word, std::to_string(k)}}.flat());
  auto request = runOf("show");
  request.insert(nv::run_key::arguments, words);
  const auto answer = askOne(request, kScripts);
  EXPECT_FALSE(nv::isError(answer)) << nv::getError(answer);
  EXPECT_EQ(answer.get(nv::run_key::status), 3U);
  EXPECT_EQ(answer.get(nv::run_key::output), "5, the test, 5000, 5000\n");
}

TEST_F(ScriptProcess, OthersAreAnsweredWhileScriptsRun) {
  add("endless", "while :; do :; done", 2000);
  auto request = runOf("endless");
  request.insert(key::route, kScripts);
  message late;
  const nv::Post post(
      request, [&](const message& reply) { late = reply; }, kPatience);
  add("quick", "echo done");
  EXPECT_EQ(askOne(runOf("quick"), kScripts).get(nv::run_key::output), "done\n");
  EXPECT_TRUE(late.empty()) << "the endless one is still running";
  until([&] { return !late.empty(); });
  EXPECT_EQ(nv::getError(late), "script \"endless\" was killed: it ran longer than 2000 ms");
}

TEST_F(ScriptProcess, TooManyAtOneTimeAreRefusedAndTheNextOnesRunAgain) {
  add("slow", "sleep 1");
  std::vector<message> requests(scripts::Runner::kMostRuns + 4, runOf("slow"));
  unsigned refused = 0;
  for (const auto& answer : ask(requests, kScripts)) {
    unsigned code = 0;
    if (nv::isError(answer, &code) && code == nv::err::tooMany) ++refused;
  }
  EXPECT_EQ(refused, 4U);
  EXPECT_EQ(askOne(runOf("slow"), kScripts).get(nv::run_key::status, 99), 0U);
}

TEST_F(ScriptProcess, AServiceThatEndsTakesItsScriptsAlong) {
  const auto file = place.folder() / "pid";
  add("stay", "echo $$ >" + file.string() + "; exec sleep 1000");
  auto request = runOf("stay");
  request.insert(key::route, kScripts);
  const nv::Post post(
      request, [](const message&) {}, kPatience);
  pid_t pid = 0;
  for (int k = 0; k < 10000 && !(std::ifstream(file) >> pid); ++k)
    askOne(runOf("nobody"), kScripts);
  ASSERT_GT(pid, 0);
  EXPECT_EQ(service.end(SIGTERM), 0);
  EXPECT_NE(::kill(pid, 0), 0);
}

}  // namespace
