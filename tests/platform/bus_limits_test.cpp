/// What a peer cannot do: break the rules of the bus, or take more than its share.

#include <algorithm>

#include "tests/platform/bus_fixture.h"
#include "tests/support/captured_output.h"

namespace nv::testkit {
namespace {

/// What a client may send; replies may be deeper.
constexpr unsigned kDepth = 24;

/// A change with messages within messages, `depth` of them.
message nested(unsigned depth) {
  message inner{{key::name, "deep"}};
  for (unsigned i = 1; i < depth; ++i) inner = message{{message_id(1), inner.flat()}};
  return setText(1, 1, "").insert(message_id(1), inner.flat());
}

/// A request of so many bytes.
message sized(std::size_t bytes) {
  const std::size_t frame = setText(1, 1, "").max_length();
  return setText(1, 1, std::string(bytes - frame, 'x'));
}

std::size_t times(const std::string& text, const std::string& what) {
  std::size_t found = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++found;
  return found;
}

TEST_F(Bus, WhoBreaksTheRulesIsCutWithOneLineOfDiagnosisAndTheOthersGoOn) {
  const struct {
    std::vector<unsigned char> bytes;
    std::vector<message> requests;  // after the bytes
    const char* line;
  } offences[] = {
      {{0, 0, 0, 0x7f, 1}, {}, "a frame of 2130706432 bytes is over the limit"},
      {{0xff, 0xff, 0xff, 0xff}, {}, "a frame of 4294967295 bytes is over the limit"},
      {{4, 0, 0, 0, 1, 2, 3, 4}, {}, "a frame is malformed: shorter than the header"},
      {{}, {sized(Limits().frameBytes + 4)}, "a frame of 262148 bytes is over the limit"},
      {{}, {nested(kDepth + 1)}, "a frame is malformed: nested too deeply"},
      {{}, {setText(0, 1, "x")}, "a request carries no tag"},
      {{}, {command(0, 0x55)}, "a request carries no tag"},
      {{}, {command(0, cmd::getAll)}, "a request carries no tag"},
      {{},
       {command(1, cmd::getCount).insert(key::frameKind, 1)},
       "a client sent something that is no request"},
      {{}, {setText(9, 1, "x"), setText(9, 1, "x")}, "two requests carry one tag"},
  };
  auto other = kit.connect();
  kit.engine().hold();
  for (const auto& offence : offences) {
    SCOPED_TRACE(offence.line);
    const CapturedOutput output;
    auto peer = kit.connect();
    peer->sendBytes(offence.bytes);
    for (const auto& request : offence.requests) peer->send(request);
    peer->send(command(1, cmd::getCount));
    kit.settle();
    EXPECT_TRUE(peer->cut());
    EXPECT_EQ(times(output.text(), std::string(" is cut: ") + offence.line + '\n'), 1U);
    EXPECT_EQ(times(output.text(), "\n"), 1U) << output.text();
    EXPECT_EQ(said(*other, command(2, cmd::getCount)), "2 ok");
  }
}

TEST_F(Bus, WhatTheDeepestAndTheLargestRequestLeaveBehindCanBeRead) {
  auto peer = kit.connect();
  EXPECT_EQ(said(*peer, nested(kDepth)), "1 ok");
  EXPECT_EQ(said(*peer, sized(Limits().frameBytes)), "1 ok");
  EXPECT_EQ(heard(*peer, command(2, cmd::getUndo)).at(0).size(key::objects), 2U);
}

TEST_F(Bus, LimitsCostTheOneWhoReachesThem) {
  auto peer = kit.connect();
  kit.engine().hold();
  const auto limits = Limits();
  for (std::uint32_t tag = 1; tag <= limits.requestsInFlight + 1; ++tag)
    peer->send(setText(tag, tag, "x"));
  EXPECT_EQ(said(*peer), "257 fe0104");
  kit.engine().release();
  EXPECT_EQ(heard(*peer).size(), limits.requestsInFlight);
  EXPECT_EQ(said(*peer, command(1, cmd::getCount)), "1 ok");

  std::vector<std::unique_ptr<BusPeer>> crowd;
  for (std::size_t i = 0; i <= limits.connectionsPerUser; ++i)
    crowd.push_back(kit.connect({500, 500, 1}));
  EXPECT_EQ(said(*crowd.back()), "0 fe0104");
  EXPECT_TRUE(crowd.back()->cut());
  EXPECT_FALSE(crowd.front()->cut());
  crowd.front()->close();
  kit.settle();
  auto late = kit.connect({500, 500, 1});
  kit.settle();
  EXPECT_FALSE(late->cut());
}

TEST_F(Bus, AClientThatDoesNotReadItsRepliesIsNotReadEither) {
  texts.texts[1] = std::string(50000, 'x');
  auto peer = kit.connect();
  peer->setReading(false);
  for (std::uint32_t tag = 1; tag <= 1000; ++tag) {
    peer->send(command(tag, cmd::getObj, 1));
    kit.pass();
  }
  EXPECT_LT(texts.fetches, 10);
  EXPECT_FALSE(peer->cut());
  peer->setReading(true);
  for (int i = 0; i < 1100; ++i) kit.pass();
  EXPECT_EQ(texts.fetches, 1000);
  EXPECT_EQ(peer->received().size(), 1000U);
}

TEST_F(Bus, TheSubscriptionsOfAConnectionAndOfAUserAreCounted) {
  const auto limits = Limits();
  std::vector<std::unique_ptr<BusPeer>> crowd;
  // Subscribes until it may no more; how often it could.
  const auto subscribeAll = [&](BusPeer& peer) {
    for (std::uint32_t tag = 1; tag <= limits.subscriptions + 1; ++tag)
      peer.send(command(tag, cmd::subscribe));
    const auto replies = heard(peer);
    EXPECT_EQ(errorCode(replies.back()), err::tooMany);
    return std::ranges::count_if(replies, [](auto& reply) { return !isError(reply); });
  };
  for (std::size_t i = 0; i < limits.connectionsPerUser; ++i) {
    crowd.push_back(kit.connect({500, 500, 1}));
    const bool room = i < limits.subscriptionsPerUser / limits.subscriptions;
    EXPECT_EQ(subscribeAll(*crowd[i]), room ? static_cast<int>(limits.subscriptions) : 0);
  }
  const auto most = static_cast<int>(limits.subscriptionsPerUser);
  EXPECT_EQ(texts.subscribers, most);
  auto other = kit.connect({501, 501, 1});
  EXPECT_EQ(said(*other, command(1, cmd::subscribe)), "1 ok");

  crowd[0]->close();
  crowd[1]->send(command(1001, cmd::unsubscribe, 1));
  kit.settle();
  EXPECT_EQ(subscribeAll(*crowd.back()), static_cast<int>(limits.subscriptions));
  crowd[1]->send(command(1002, cmd::subscribe));
  EXPECT_EQ(said(*crowd[1], command(1003, cmd::subscribe)), "1001 ok, 1002 ok, 1003 fe0104");
  EXPECT_EQ(texts.subscribers, most + 1);
}

TEST_F(Bus, AUserWhoIsCutAgainAndAgainFillsNoLog) {
  const auto cuts = [this](std::uint32_t user, int number) {
    for (int i = 0; i < number; ++i) {
      kit.connect({user, user, 1})->sendBytes({0xff, 0xff, 0xff, 0xff});
      kit.settle();
    }
  };
  const CapturedOutput output;
  cuts(500, 1000);
  cuts(501, 3);
  EXPECT_EQ(times(output.text(), "of user 500 is cut: "), 10U);
  EXPECT_EQ(times(output.text(), "of user 501 is cut: "), 3U);
  kit.advance(1000);
  EXPECT_EQ(times(output.text(), "990 more connections of user 500 were cut within a second"), 1U);
  EXPECT_EQ(times(output.text(), "more connections"), 1U);
  cuts(500, 1);
  EXPECT_EQ(times(output.text(), "of user 500 is cut: "), 11U);
}

/// Answers no get before it is told to.
struct LateHandler : ListHandler {
  message cmdGetObj(const message& request, std::uint32_t) override {
    waiting.push_back(request);
    return {{key::replyMarker, kNoId}};
  }
  std::vector<message> waiting;
};

class TightBus : public Bus {
 protected:
  TightBus() : Bus({.queuedBytes = 2000, .maxQueuedBytes = 20000, .undoBytes = 10000}) {}
};

TEST_F(TightBus, AClientThatDoesNotReadWhatItHasAskedForIsCut) {
  LateHandler late;
  serve(late);
  auto idle = kit.connect(), reading = kit.connect();
  for (std::uint32_t tag = 1; tag <= 30; ++tag)
    for (auto* const peer : {idle.get(), reading.get()}) peer->send(command(tag, cmd::getObj, 1));
  kit.settle();
  ASSERT_EQ(late.waiting.size(), 60U);
  idle->setReading(false);
  const CapturedOutput output;
  for (auto& request : late.waiting) {
    late.replyMessage(request, {{key::name, std::string(1000, 'x')}});
    kit.settle();
  }
  EXPECT_TRUE(idle->cut());
  EXPECT_EQ(times(output.text(), "it does not read what is sent to it"), 1U);
  EXPECT_FALSE(reading->cut());
  EXPECT_EQ(reading->received().size(), 30U);
}

TEST_F(TightBus, UndoRecordsMakeRoomByTheirBytesButTheLastStays) {
  auto peer = kit.connect();
  const auto change = [&](std::size_t bytes) {
    heard(*peer, setText(1, 1, std::string(bytes, 'x')));
  };
  const auto records = [&] {
    return heard(*peer, command(2, cmd::getUndo)).at(0).get(key::objects);
  };
  for (int i = 0; i < 50; ++i) change(1000);
  const auto kept = records();
  std::size_t bytes = 0;
  for (const auto& record : kept) bytes += record.size();
  EXPECT_LE(bytes, 10000U);
  EXPECT_GT(bytes, 8000U);
  EXPECT_EQ(message(kept[0]).get(undo_key::number), 50U);
  change(12000);
  ASSERT_EQ(records().size(), 1U);
  EXPECT_EQ(message(records()[0]).get(undo_key::number), 51U);
}

}  // namespace
}  // namespace nv::testkit
