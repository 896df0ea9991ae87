/// Bytes that are no requests, on real sockets: nobody notices but who sends them.

#include <csignal>

#include <gtest/gtest.h>

#include "platform/commands.h"
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

TEST(BadFrames, TheLargestFrameAllowedIsServedAndOneMoreByteIsNot) {
  const Place place;
  ServiceProcess service(place);
  ASSERT_TRUE(service.start());
  const auto limit = static_cast<unsigned>(Limits().frameBytes);
  auto large = command(cmd::getObj, 1).insert(key::tag, 1);
  large.insert(raw_id(9), Bytes(limit - large.max_length() - 8, 'x'));
  ASSERT_EQ(large.max_length(), limit);
  EXPECT_TRUE(isError(RawClient(place.socket()).ask(large)));
  EXPECT_EQ(service.said(), "");

  RawClient greedy(place.socket());
  large.insert(raw_id(9), Bytes(limit - 8, 'x'));
  greedy.send(large);
  EXPECT_TRUE(greedy.isCut());
}

/// Commands with fields that hold anything, some bytes changed, in frames that are mostly whole.
class Fuzzer {
 public:
  Bytes stream() {
    Bytes bytes;
    for (auto frames = upTo(5) + 1; frames > 0; --frames) {
      const auto next = upTo(3) == 0 ? noise() : changed(frameOf(request()));
      bytes.insert(bytes.end(), next.begin(), next.end());
    }
    return bytes;
  }
  unsigned upTo(unsigned most) { return random_.below(most + 1); }
  std::string seed() const { return random_.seed(); }

 private:
  unsigned anything() { return random_.below(0xffffffff); }
  message request() {
    auto msg = command(0xfe0000 + upTo(0x20), upTo(9) ? upTo(5) : anything());
    msg.insert(kText, std::string(upTo(40), 'f'));
    for (auto extra = upTo(4); extra > 0; --extra)
      msg.insert(u32_id((upTo(1) ? 0xfe0000 : 0xff0000) + upTo(0x22)), anything() >> upTo(31));
    return msg;
  }
  Bytes changed(Bytes bytes) {
    for (auto changes = upTo(2); changes > 0; --changes)
      bytes[4 + upTo(static_cast<unsigned>(bytes.size()) - 5)] =
          static_cast<unsigned char>(anything());
    return bytes;
  }
  Bytes noise() {
    Bytes bytes(upTo(200));
    for (auto& byte : bytes) byte = static_cast<unsigned char>(anything());
    if (bytes.size() > 4 && upTo(3)) bytes[2] = bytes[3] = 0;  // a length that could be one
    return bytes;
  }

  Random random_;
};

TEST(BadFrames, RandomStreamsLeaveTheServiceSound) {
  Fuzzer fuzzer;
  SCOPED_TRACE(fuzzer.seed());
  const Place place;
  ServiceProcess service(place);
  ASSERT_TRUE(service.start());
  RawClient other(place.socket());
  for (int i = 0; i < kStreams && !HasFailure(); ++i) {
    RawClient rude(place.socket());
    rude.sendBytes(fuzzer.stream());
    if (fuzzer.upTo(3) == 0) {
      rude.finish();
      EXPECT_TRUE(rude.isCut());
    }
    ASSERT_TRUE(i % 20 != 0 || other.ask(command(cmd::get)).has(kRequest));
  }
  other.close();
  EXPECT_EQ(service.end(SIGTERM), 0) << service.said();
  EXPECT_TRUE(service.start());
}

}  // namespace
}  // namespace nv::testkit
