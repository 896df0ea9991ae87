/// A subscriber that does not read costs the service nothing that grows, and the others no time.

#include <csignal>
#include <map>
#include <thread>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/commands.h"
#include "tests/support/raw_client.h"
#include "tests/system/service_process.h"
#include "tests/system/twin_map.h"

namespace nv::testkit {
namespace {

constexpr int kRounds = 200;
constexpr std::uint32_t kTexts = 50;
constexpr std::size_t kTextBytes = 1000;
constexpr int kWarmUp = kRounds / 4;  // by then what may be queued is queued
constexpr std::uint64_t kMayGrow = 512 * 1024;
// Growth with each change that a stopped subscriber misses would be seen many times over.
static_assert((kRounds - kWarmUp) * kTexts * kTextBytes > 8 * kMayGrow);

std::string textOfRound(int round) { return std::string(kTextBytes, 'x') + std::to_string(round); }

/// Subscribes, says so on `ready`, and reads until each text is as in the last round; 0 then,
/// else 1.
int readToTheEnd(const Place& place, int ready) {
  RawClient client(place.socket());
  if (isError(client.ask(command(cmd::subscribe))) || write(ready, "!", 1) != 1) return 1;
  std::map<std::uint32_t, std::string> final;
  while (final.size() < kTexts) {
    const auto change = client.receive();
    if (!change) return 1;
    if (change->get(kText) == textOfRound(kRounds)) final[change->get(key::objectId)];
  }
  return 0;
}

pid_t startSubscriber(const Place& place) {
  int ready[2];
  if (pipe(ready) != 0) std::abort();
  const pid_t pid = fork();
  if (pid == 0) _exit(readToTheEnd(place, ready[1]));
  close(ready[1]);
  char byte;
  EXPECT_EQ(read(ready[0], &byte, 1), 1);
  close(ready[0]);
  return pid;
}

/// Changes every text, many requests at a time.
void changeAll(RawClient& client, int round) {
  for (std::uint32_t id = 1; id <= kTexts; ++id)
    ASSERT_TRUE(client.send(setText(id, textOfRound(round)).insert(key::tag, id)));
  for (std::uint32_t id = 1; id <= kTexts; ++id) {
    const auto reply = client.receive();
    ASSERT_TRUE(reply && !isError(*reply));
  }
}

std::uint64_t heapOf(RawClient& client) {
  const auto bytes = client.ask(command(cmd::get)).get(kHeapInUse);
  EXPECT_NE(bytes, 0U);
  return bytes;
}

TEST(StoppedSubscriber, NeitherGrowsTheServiceNorDelaysOthersAndCatchesUp) {
  Place place;
  ServiceProcess service(place);
  ASSERT_TRUE(service.start());
  RawClient writer(place.socket()), reader(place.socket());
  for (std::uint32_t id = 1; id <= kTexts; ++id) writer.ask(addText(id, ""));
  const pid_t stopped = startSubscriber(place);
  kill(stopped, SIGSTOP);
  int status = 0;
  ASSERT_EQ(waitpid(stopped, &status, WUNTRACED), stopped);
  ASSERT_TRUE(WIFSTOPPED(status));

  int readyPipe[2];
  ASSERT_EQ(pipe(readyPipe), 0);
  int quickStatus = 1;
  std::thread quick([&] { quickStatus = readToTheEnd(place, readyPipe[1]); });
  char byte;
  ASSERT_EQ(read(readyPipe[0], &byte, 1), 1);

  for (int round = 1; round <= kWarmUp; ++round) changeAll(writer, round);
  const auto before = heapOf(reader);
  for (int round = kWarmUp + 1; round <= kRounds; ++round) {
    changeAll(writer, round);
    EXPECT_EQ(reader.ask(command(cmd::getObj, 1)).get(kText), textOfRound(round));
  }
  EXPECT_LT(heapOf(reader), before + kMayGrow);
  quick.join();
  EXPECT_EQ(quickStatus, 0);

  kill(stopped, SIGCONT);
  ASSERT_EQ(waitpid(stopped, &status, 0), stopped);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(service.said(), "");
}

}  // namespace
}  // namespace nv::testkit
