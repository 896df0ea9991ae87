/// A subscriber that does not read costs the service nothing that grows, and the others no time.

#include <map>
#include <thread>

#include <gtest/gtest.h>

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

/// Reads until each text is as in the last round.
void readToTheEnd(RawClient& subscriber) {
  std::map<std::uint32_t, std::string> final;
  while (final.size() < kTexts) {
    const auto change = subscriber.receive();
    ASSERT_TRUE(change);
    if (change->get(kText) == textOfRound(kRounds)) final[change->get(key::objectId)];
  }
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

TEST(StoppedSubscriber, NeitherGrowsTheServiceNorDelaysOthersAndCatchesUp) {
  const Place place;
  ServiceProcess service(place);
  ASSERT_TRUE(service.start());
  RawClient writer(place.socket()), reader(place.socket());
  for (std::uint32_t id = 1; id <= kTexts; ++id) writer.ask(addText(id, ""));
  RawClient stopped(place.socket()), quick(place.socket());
  for (auto* const subscriber : {&stopped, &quick})
    ASSERT_FALSE(isError(subscriber->ask(command(cmd::subscribe))));
  std::thread reading([&] { readToTheEnd(quick); });

  std::uint64_t before = 0;
  const auto heap = [&] { return reader.ask(command(cmd::get)).get(kHeapInUse); };
  for (int round = 1; round <= kRounds; ++round) {
    changeAll(writer, round);
    EXPECT_EQ(reader.ask(command(cmd::getObj, 1)).get(kText), textOfRound(round));
    if (round == kWarmUp) before = heap();
  }
  reading.join();
  EXPECT_GT(before, 0U);
  EXPECT_LT(heap(), before + kMayGrow);
  readToTheEnd(stopped);
  EXPECT_EQ(service.said(), "");
}

}  // namespace
}  // namespace nv::testkit
