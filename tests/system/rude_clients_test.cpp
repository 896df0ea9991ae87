/// What clients cannot do to a service, whatever they send, claim or do not read.

#include <csignal>

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/limits.h"
#include "tests/support/random.h"
#include "tests/support/raw_client.h"
#include "tests/support/text_map.h"
#include "tests/system/service_process.h"

namespace nv::testkit {
namespace {

#ifdef CONFKIT_SLOW
constexpr int kStreams = 400;
#else
constexpr int kStreams = 4000;
#endif

using Bytes = std::vector<unsigned char>;

class RudeClients : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(service.start()) << service.said(); }

  Place place;
  ServiceProcess service{place};
};

/// A command with fields that hold anything, some bytes changed, here and there cut short.
Bytes anyFrame(Random& random) {
  auto msg = command(0xfe0000 + random.below(0x21), random.below(6));
  msg.insert(kText, std::string(random.below(40), 'f'));
  for (auto extra = random.below(5); extra > 0; --extra)
    msg.insert(u32_id((random.below(2) ? 0xfe0000 : 0xff0000) + random.below(0x23)),
               random.below(0xffffffff) >> random.below(32));
  auto bytes = frameOf(msg);
  const auto size = static_cast<unsigned>(bytes.size());
  for (auto changes = random.below(3); changes > 0; --changes)
    bytes[4 + random.below(size - 4)] = static_cast<unsigned char>(random.below(256));
  if (random.below(6) == 0) bytes.resize(random.below(size));
  return bytes;
}

TEST_F(RudeClients, LeaveItSoundWhateverBytesTheySend) {
  Random random;
  SCOPED_TRACE(random.seed());
  RawClient other(place.socket());
  for (int i = 0; i < kStreams && !HasFailure(); ++i) {
    RawClient rude(place.socket());
    for (auto frames = 1 + random.below(6); frames > 0; --frames) rude.sendBytes(anyFrame(random));
    if (random.below(4) == 0) {
      rude.finish();
      EXPECT_TRUE(rude.isCut());
    }
    ASSERT_TRUE(i % 20 != 0 || other.ask(command(cmd::get)).has(kRequest));
  }
  other.close();
  EXPECT_EQ(service.end(SIGTERM), 0) << service.said();
  EXPECT_TRUE(service.start());
}

TEST_F(RudeClients, AreToldOnlyTheLatestWhenTheyReadLateAndDelayNobody) {
  constexpr std::uint32_t kTexts = 50;
  constexpr unsigned kRounds = 50, kMayBeQueued = 500;
  const auto textOf = [](unsigned round) { return std::to_string(round) + std::string(4000, 'x'); };
  RawClient writer(place.socket()), stopped(place.socket());
  ASSERT_FALSE(isError(stopped.ask(command(cmd::subscribe))));
  for (unsigned round = 0; round < kRounds; ++round) {
    for (std::uint32_t id = 1; id <= kTexts; ++id) {
      const auto text = textOf(round);
      writer.send((round == 0 ? addText(id, text) : setText(id, text)).insert(key::tag, id));
    }
    for (std::uint32_t id = 1; id <= kTexts; ++id) {
      const auto reply = writer.receive();
      ASSERT_TRUE(reply && !isError(*reply));
    }
  }
  unsigned heard = 0;
  for (std::uint32_t latest = 0; latest < kTexts; ++heard) {
    const auto change = stopped.receive();
    ASSERT_TRUE(change);
    latest += change->get(kText) == textOf(kRounds - 1);
  }
  EXPECT_LT(heard, kMayBeQueued) << "of " << kRounds * kTexts << " changes";
  EXPECT_EQ(service.said(), "");
}

/// The credentials of a connection are those of the process when it connects.
void connectAs(const User& user, RawClient& client, const Place& place) {
  ASSERT_EQ(setegid(user.uid), 0);
  ASSERT_EQ(seteuid(user.uid), 0);
  const bool connected = client.connect(place.socket());
  ASSERT_EQ(seteuid(0), 0);
  ASSERT_EQ(setegid(0), 0);
  ASSERT_TRUE(connected);
}

TEST_F(RudeClients, HaveTheRouteAndAtMostTheRightsOfWhomTheKernelSaysTheyAre) {
  if (geteuid() != 0)
    GTEST_SKIP() << "NOT TESTED: WHAT OTHER USERS CAN FORGE. Only root can connect as somebody "
                    "else: run the tests as root.";
  RawClient root(place.socket()), clerk, nobody;
  connectAs(kClerk, clerk, place);
  connectAs(kNobody, nobody, place);
  const struct {
    RawClient& client;
    std::optional<std::uint32_t> asked;
    std::uint32_t got;
  } cases[] = {
      {root, {}, kSystemRights},
      {root, 5, 5},
      {clerk, {}, 5},
      {clerk, kSystemRights, 5},
      {clerk, 4, 4},
      {clerk, 0xa, 0},
      {nobody, {}, 0},
      {nobody, kSystemRights, 0},
  };
  const auto seen = [](RawClient& client, const message& request) {
    return message(client.ask(request).get(kRequest));
  };
  const auto victim = seen(root, command(cmd::get)).get(key::requester);
  for (const auto& [client, asked, got] : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << "asked for " << asked.value_or(0xdefa));
    message forged{{key::requester, victim}};
    if (asked) forged.insert(key::rights, *asked);
    auto request = command(cmd::get), change = addText(1, "mine");
    request.merge(forged);
    change.merge(forged);
    const auto arrived = seen(client, request);
    EXPECT_TRUE(arrived.has(key::rights));
    EXPECT_EQ(arrived.get(key::rights), got);
    EXPECT_EQ(arrived.size(key::requester), 1U);
    EXPECT_EQ(arrived.get(key::requester) == victim, &client == &root);
    EXPECT_EQ(errorCode(client.ask(change)) == err::notAllowed, got == 0);
  }
}

}  // namespace
}  // namespace nv::testkit
