/// Programs beside the loop: what they are given, what stops them, and that nothing of them stays.

#include "examples/scripts/child.h"

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

#include "platform/client.h"
#include "platform/looper.h"
#include "tests/examples/service_test.h"

namespace scripts {
namespace {

constexpr unsigned kLong = 60000;  // milliseconds
constexpr std::size_t kMuch = 1 << 20;

class ChildTest : public ::testing::Test {
 protected:
  ChildTest() { nv::connectBus(place.path()); }
  ~ChildTest() override { nv::getLooper()->assemble({}); }

  static Program shell(const std::string& source, unsigned milliseconds = kLong,
                       std::size_t bytes = kMuch) {
    return {{"/bin/sh", "-c", source, "test"}, {"PATH=/usr/bin:/bin"}, milliseconds, bytes};
  }
  Outcome run(const Program& program) {
    std::optional<Outcome> result;
    std::string fault;
    child = Child::start(
        program,
        [&](Outcome outcome) {
          result = std::move(outcome);
          child.reset();
        },
        fault);
    if (!child) return {{}, {}, "not started: " + fault};
    while (!result) nv::getLooper()->runOnce(true);
    return *result;
  }
  /// Whether the process does more than wait for somebody to take notice of its end.
  static bool isAlive(const std::string& pid) {
    std::string state, word;
    std::ifstream status("/proc/" + pid + "/status");
    while (status >> word)
      if (word == "State:" && status >> state) return state != "Z" && state != "X";
    return false;
  }
  /// Waits for the end of processes, a line each, and counts them.
  static int awaitEnds(const std::string& lines) {
    std::istringstream pids(lines);
    int found = 0, patience = 10000;
    for (std::string pid; std::getline(pids, pid); ++found) {
      for (; patience > 0 && isAlive(pid); --patience) ::usleep(1000);
      EXPECT_FALSE(isAlive(pid)) << pid;
    }
    return found;
  }

  TempDirectory place;
  std::unique_ptr<Child> child;
};

TEST_F(ChildTest, ItsOutputAndStatusAreTold) {
  const auto outcome = run(shell("echo out; echo err >&2; exit 7"));
  EXPECT_EQ(outcome.output, "out\nerr\n");
  EXPECT_EQ(outcome.status, 7);
  EXPECT_EQ(outcome.cut, "");
  EXPECT_EQ(run(shell("kill -SEGV $$")).cut, "it was ended by signal 11");
  EXPECT_EQ(run(shell("echo \"$PATH $HOME$USER\"")).output, "/usr/bin:/bin \n") << "nothing else";
  EXPECT_EQ(run(shell("head -c 100000 /dev/zero")).output, std::string(100000, '\0'));
  const auto exact = run(shell("head -c 5000 /dev/zero", kLong, 5000));
  EXPECT_EQ(exact.output.size(), 5000U);
  EXPECT_EQ(exact.cut, "");
}

TEST_F(ChildTest, OneThatNeverEndsIsKilled) {
  const auto outcome = run(shell("trap '' TERM INT HUP; echo here; while :; do :; done", 200));
  EXPECT_EQ(outcome.output, "here\n");
  EXPECT_EQ(outcome.cut, "it ran longer than 200 ms");
  EXPECT_EQ(outcome.status, std::nullopt);
}

TEST_F(ChildTest, OneThatWritesWithoutEndIsKilled) {
  for (const auto* source : {"yes", "yes & wait", "while :; do echo y; done"}) {
    const auto outcome = run(shell(source, kLong, 10000));
    EXPECT_EQ(outcome.cut, "it wrote more than 10000 bytes") << source;
    EXPECT_EQ(outcome.output.size(), 10000U);
    EXPECT_EQ(outcome.output.substr(0, 4), "y\ny\n");
  }
}

TEST_F(ChildTest, WhatItForkedIsKilledWithIt) {
  const auto slow =
      run(shell("(sleep 1000 & echo $!; sleep 1000) & echo $!; n=0; "
                "while [ $n -lt 200 ]; do sleep 1000 & echo $!; n=$((n+1)); done; wait",
                2000));
  EXPECT_EQ(slow.cut, "it ran longer than 2000 ms");
  EXPECT_GT(awaitEnds(slow.output), 1);

  const auto left = run(shell("sleep 1000 & echo $!"));
  EXPECT_EQ(left.status, 0) << "who ends is not waited for longer than itself";
  EXPECT_EQ(awaitEnds(left.output), 1);
}

TEST_F(ChildTest, ItHasNoDescriptorAndNoSignalSettingOfItsParent) {
  constexpr int kInherited = 9;
  ASSERT_EQ(::dup2(STDERR_FILENO, kInherited), kInherited);
  const auto before = std::signal(SIGTERM, SIG_IGN);
  EXPECT_NE(run(shell("echo x >&9")).status, 0);
  EXPECT_EQ(run(shell("kill -TERM $$; echo alive")).cut, "it was ended by signal 15");
  EXPECT_EQ(run(shell("read line; echo \"status $?\"")).output, "status 1\n") << "nothing to read";
  std::signal(SIGTERM, before);
  ::close(kInherited);
}

TEST_F(ChildTest, ItIsKilledWhenItsOwnerGoes) {
  std::string fault, pid;
  child = Child::start(
      shell("echo $$ >" + (place / "pid").string() + "; sleep 1000"),
      [](const Outcome&) { FAIL() << "nobody is to be told"; }, fault);
  ASSERT_TRUE(child) << fault;
  while (!(std::ifstream(place / "pid") >> pid)) ::usleep(1000);
  child.reset();
  EXPECT_FALSE(isAlive(pid));
  nv::getLooper()->runOnce(false);
}

TEST_F(ChildTest, ManyRunsLeaveNoDescriptors) {
  const auto open = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
  run(shell(":"));
  const auto before = open();
  for (int k = 0; k < 50; ++k) run(shell(k % 2 == 0 ? "echo x" : "yes", kLong, 100));
  nv::getLooper()->runOnce(false);
  EXPECT_EQ(open(), before);
}

TEST_F(ChildTest, OneThatCannotBeStartedSaysSo) {
  auto program = shell(":");
  program.words.push_back(std::string(1 << 20, 'x'));  // longer than the kernel takes
  const auto outcome = run(program);
  // Where processes are emulated the fault is seen by the child alone.
  EXPECT_TRUE(outcome.cut.starts_with("not started: ") || outcome.status == 127) << outcome.cut;
}

}  // namespace
}  // namespace scripts
