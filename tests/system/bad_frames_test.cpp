/// Bytes that are no requests: who sends them is cut, and nobody else notices.

#include <algorithm>
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

/// What a client may send; replies may be deeper.
constexpr unsigned kDepth = 24;

/// A new text with messages within messages, `depth` of them.
message nested(unsigned depth) {
  message inner{{kText, "deep"}};
  for (unsigned i = 1; i < depth; ++i) inner = message{{message_id(9), inner.flat()}};
  return addText(1, "").insert(message_id(9), inner.flat());
}

class BadFrames : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(service.start()) << service.said();
    ASSERT_TRUE(other.connect(place.socket()));
  }

  bool otherIsServed() { return other.ask(command(cmd::get)).has(kRequest); }

  Place place;
  ServiceProcess service{place};
  RawClient other;
};

TEST_F(BadFrames, CutTheirConnectionWithOneLineOfDiagnosis) {
  auto withBadFlag = frameOf(command(cmd::get).insert(bool_id(1), true));
  const auto withFlag = frameOf(command(cmd::get).insert(bool_id(1), false));
  *std::mismatch(withBadFlag.begin(), withBadFlag.end(), withFlag.begin()).first = 2;
  auto truncated = frameOf(command(cmd::get));
  truncated.pop_back();
  --truncated[0];
  const struct {
    Bytes bytes;
    const char* line;
  } cases[] = {
      {{0, 0, 16, 0x01}, "a frame of 17825792 bytes is over the limit"},
      {{0xff, 0xff, 0xff, 0xff}, "a frame of 4294967295 bytes is over the limit"},
      {{8, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}, "a frame is malformed"},
      {truncated, "a frame is malformed: not as long as it says"},
      {withBadFlag, "a frame is malformed: flag is neither 0 nor 1"},
      {frameOf(nested(kDepth + 1)), "a frame is malformed: nested too deeply"},
      {frameOf(command(cmd::get).insert(key::frameKind, 1)),
       "a client sent something that is no request"},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    RawClient rude(place.socket());
    ASSERT_TRUE(rude.ask(command(cmd::get)).has(kRequest));
    rude.sendBytes(cases[i].bytes);
    EXPECT_TRUE(rude.isCut());
    EXPECT_EQ(linesWith(service.said(), " is cut: "), static_cast<int>(i + 1));
    EXPECT_GT(linesWith(service.said(), cases[i].line), 0) << cases[i].line;
    EXPECT_TRUE(otherIsServed());
  }
}

TEST_F(BadFrames, TheLargestFrameAllowedIsServedAndOneMoreByteIsNot) {
  RawClient polite(place.socket());
  auto large = command(cmd::getObj, 1);
  large.insert(key::tag, 1);
  const auto limit = static_cast<unsigned>(Limits().frameBytes);
  large.insert(raw_id(9), Bytes(limit - large.max_length() - 8, 'x'));
  ASSERT_EQ(large.max_length(), limit);
  EXPECT_TRUE(isError(polite.ask(large)));
  EXPECT_EQ(service.said(), "");

  RawClient greedy(place.socket());
  large.insert(raw_id(9), Bytes(limit - 8, 'x'));
  greedy.send(large);
  EXPECT_TRUE(greedy.isCut());
}

TEST_F(BadFrames, WhatTheDeepestRequestLeavesBehindCanBeRead) {
  RawClient polite(place.socket());
  EXPECT_FALSE(isError(polite.ask(nested(kDepth))));
  const auto undo = polite.ask(command(cmd::getUndo));
  ASSERT_EQ(undo.size(key::objects), 1U);
  EXPECT_EQ(service.said(), "");
}

TEST_F(BadFrames, AFrameMayComeByteByByte) {
  RawClient slow(place.socket());
  auto request = command(cmd::get).insert(key::tag, 1);
  for (const auto byte : frameOf(request)) ASSERT_TRUE(slow.sendBytes({&byte, 1}));
  EXPECT_TRUE(slow.receive()->has(kRequest));
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

TEST_F(BadFrames, RandomStreamsLeaveTheServiceSound) {
  Fuzzer fuzzer;
  SCOPED_TRACE(fuzzer.seed());
  for (int i = 0; i < kStreams && !HasFailure(); ++i) {
    RawClient rude(place.socket());
    rude.sendBytes(fuzzer.stream());
    if (fuzzer.upTo(3) == 0) {
      rude.finish();
      EXPECT_TRUE(rude.isCut());
    }
    ASSERT_TRUE(i % 20 != 0 || otherIsServed());
  }
  other.close();
  EXPECT_EQ(service.end(SIGTERM), 0) << service.said();
  EXPECT_TRUE(service.start());
}

}  // namespace
}  // namespace nv::testkit
