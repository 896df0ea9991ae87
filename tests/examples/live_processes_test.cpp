/// Neighbours and scripts as processes: clients that are killed in the middle, scripts that run.

#include <fstream>

#include <sys/wait.h>
#include <unistd.h>

#include "examples/scripts/runner.h"
#include "examples/scripts/script_map.h"
#include "platform/run_request.h"
#include "tests/examples/process_test.h"

namespace {

class NeighbourProcess : public ProcessTest {
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
      const auto reply = ask(kNeighbours, {{key::command, cmd::getAll}});
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

  const Route kNeighbours{110};
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
  const message count{{key::command, cmd::getCount}};
  for (int k = 0; k < 1000 && openTables() > 0; ++k) ask(kNeighbours, count);
  EXPECT_EQ(openTables(), 0U);
  EXPECT_EQ(service.end(SIGTERM), 0);
}

class ScriptProcess : public ProcessTest {
 protected:
  ScriptProcess() {
    EXPECT_TRUE(service.start());
    nv::connectBus(place.bus());
  }
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

TEST_F(ScriptProcess, AServiceThatEndsTakesItsScriptsAlong) {
  const auto file = place.folder() / "pid";
  add("stay", "echo $$ >" + file.string() + "; exec sleep 1000");
  message never;
  const auto post = send(kScripts, runOf("stay"), never);
  pid_t pid = 0;
  for (int k = 0; k < 10000 && !(std::ifstream(file) >> pid); ++k) ask(kScripts, runOf("nobody"));
  ASSERT_GT(pid, 0);
  EXPECT_EQ(service.end(SIGTERM), 0);
  EXPECT_NE(::kill(pid, 0), 0);
}

}  // namespace
