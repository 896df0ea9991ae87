/// What a peer cannot do: break the rules of the bus, or take more than its share.

#include <gtest/gtest.h>

#include "platform/undo_log.h"
#include "tests/platform/bus_fixture.h"
#include "tests/support/captured_output.h"

namespace nv::testkit {
namespace {

message nested(unsigned depth) {
  message inner;
  for (unsigned i = 0; i < depth; ++i) {
    message outer;
    outer.insert(message_id(1), inner.flat());
    inner = outer;
  }
  return inner;
}

TEST_F(Bus, WhoBreaksTheRulesIsCutAndTheOthersGoOn) {
  ListHandler texts;
  serve(texts);
  auto reply = command(1, cmd::getCount);
  reply.insert(key::frameKind, 1);
  struct {
    const char* what;
    std::function<void(BusPeer&)> offend;
  } const offences[] = {
      {"a frame over the limit",
       [](BusPeer& peer) {
         peer.sendBytes({0, 0, 0, 0x7f, 1});
       }},
      {"the longest length",
       [](BusPeer& peer) {
         peer.sendBytes({0xff, 0xff, 0xff, 0xff});
       }},
      {"bytes that are no message",
       [](BusPeer& peer) {
         peer.sendBytes({4, 0, 0, 0, 1, 2, 3, 4});
       }},
      {"too deep", [](BusPeer& peer) { peer.send(nested(40)); }},
      {"a change that is not counted", [](BusPeer& peer) { peer.send(setText(0, 1, "x")); }},
      {"a service's own command that is not counted",
       [](BusPeer& peer) { peer.send(command(0, 0x55)); }},
      {"a reply", [&](BusPeer& peer) { peer.send(reply); }},
      {"one tag twice in flight",
       [&](BusPeer& peer) {
         kit.engine().hold();
         ListHandler stored("twice");
         getLooper()->addHandler(5, &stored);
         auto msg = setText(9, 1, "x");
         msg.insert_vector(key::route, kAddress, 5);
         peer.send(msg);
         peer.send(msg);
         kit.settle();
         kit.engine().release();
         kit.settle();
       }},
  };
  auto other = kit.connect();
  for (const auto& offence : offences) {
    auto peer = kit.connect();
    offence.offend(*peer);
    peer->send(command(1, cmd::getCount));
    kit.settle();
    EXPECT_TRUE(peer->cut()) << offence.what;
    other->send(command(2, cmd::getCount));
    EXPECT_EQ(said(*other), "2 ok") << offence.what;
  }
}

TEST_F(Bus, LimitsCostTheOneWhoReachesThem) {
  ListHandler texts("limits");
  serve(texts);
  auto peer = kit.connect();
  kit.engine().hold();
  const auto limits = Limits();
  for (std::uint32_t tag = 1; tag <= limits.requestsInFlight + 1; ++tag)
    peer->send(setText(tag, tag, "x"));
  EXPECT_EQ(said(*peer), "257 fe0104");
  kit.engine().release();
  kit.settle();
  EXPECT_EQ(peer->received().size(), limits.requestsInFlight);
  peer->send(command(1, cmd::getCount));
  EXPECT_EQ(said(*peer), "1 ok");

  for (std::uint32_t tag = 1; tag <= limits.subscriptions; ++tag)
    peer->send(command(tag, cmd::subscribe));
  kit.settle();
  peer->received();
  peer->send(command(999, cmd::subscribe));
  EXPECT_EQ(said(*peer), "999 fe0104");
  peer->send(command(1000, cmd::unsubscribe, 1));
  peer->send(command(1001, cmd::subscribe));
  EXPECT_EQ(said(*peer), "1000 ok, 1001 ok");

  std::vector<std::unique_ptr<BusPeer>> crowd;
  for (std::size_t i = 0; i <= limits.connectionsPerUser; ++i)
    crowd.push_back(kit.connect({500, 500, 1}));
  kit.settle();
  EXPECT_TRUE(crowd.back()->cut());
  EXPECT_EQ(line(crowd.back()->received()), "0 fe0104");
  EXPECT_FALSE(crowd.front()->cut());
  crowd.front()->close();
  kit.settle();
  auto late = kit.connect({500, 500, 1});
  kit.settle();
  EXPECT_FALSE(late->cut());
}

TEST_F(Bus, AClientThatDoesNotReadItsRepliesIsNotReadEither) {
  ListHandler texts;
  serve(texts);
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

TEST_F(Bus, TheSubscriptionsOfAUserAreCountedTogether) {
  ListHandler texts;
  serve(texts);
  const auto limits = Limits();
  std::vector<std::unique_ptr<BusPeer>> crowd;
  std::size_t refused = 0;
  for (std::size_t i = 0; i < limits.connectionsPerUser; ++i) {
    crowd.push_back(kit.connect({500, 500, 1}));
    for (std::uint32_t tag = 1; tag <= limits.subscriptions; ++tag)
      crowd.back()->send(command(tag, cmd::subscribe));
    kit.settle();
    for (const auto& reply : crowd.back()->received()) refused += errorCode(reply) == err::tooMany;
  }
  const auto most = static_cast<int>(limits.subscriptionsPerUser);
  EXPECT_EQ(texts.subscribers, most);
  EXPECT_EQ(refused,
            limits.connectionsPerUser * limits.subscriptions - limits.subscriptionsPerUser);
  auto other = kit.connect({501, 501, 1});
  other->send(command(1, cmd::subscribe));
  EXPECT_EQ(said(*other), "1 ok");

  crowd[0]->close();
  crowd[1]->send(command(1001, cmd::unsubscribe, 1));
  kit.settle();
  for (std::uint32_t tag = 1; tag <= limits.subscriptions; ++tag)
    crowd.back()->send(command(tag, cmd::subscribe));
  crowd[1]->send(command(1002, cmd::subscribe));
  crowd[1]->send(command(1003, cmd::subscribe));
  EXPECT_EQ(said(*crowd[1]), "1001 ok, 1002 ok, 1003 fe0104");
  EXPECT_EQ(texts.subscribers, most + 1);
}

/// Answers no get before it is told to.
struct LateHandler : ListHandler {
  message cmdGetObj(const message& request, std::uint32_t) override {
    waiting.push_back(request);
    return {{key::replyMarker, kNoId}};
  }
  void answerAll(const message& reply) {
    for (const auto& request : std::exchange(waiting, {})) replyMessage(request, reply);
  }
  std::vector<message> waiting;
};

TEST_F(Bus, AUserWhoIsCutAgainAndAgainFillsNoLog) {
  const auto cuts = [this](std::uint32_t user, int times) {
    for (int i = 0; i < times; ++i) {
      kit.connect({user, user, 1})->sendBytes({0xff, 0xff, 0xff, 0xff});
      kit.settle();
    }
  };
  const auto linesOf = [](const std::string& text, const std::string& what) {
    int lines = 0;
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++lines;
    return lines;
  };
  const CapturedOutput output;
  cuts(500, 1000);
  cuts(501, 3);
  EXPECT_EQ(linesOf(output.text(), "of user 500 is cut: "), 10);
  EXPECT_EQ(linesOf(output.text(), "of user 501 is cut: "), 3);
  kit.advance(1000);
  EXPECT_EQ(linesOf(output.text(), "990 more connections of user 500 were cut within a second"), 1);
  EXPECT_EQ(linesOf(output.text(), "more connections"), 1);
  cuts(500, 1);
  EXPECT_EQ(linesOf(output.text(), "of user 500 is cut: "), 11);
}

class TightBus : public Bus {
 protected:
  TightBus() : Bus({.queuedBytes = 2000, .maxQueuedBytes = 20000, .undoBytes = 10000}) {}
};

TEST_F(TightBus, AClientThatDoesNotReadWhatItHasAskedForIsCut) {
  LateHandler texts;
  serve(texts);
  auto idle = kit.connect(), reading = kit.connect();
  for (std::uint32_t tag = 1; tag <= 30; ++tag)
    for (auto* const peer : {idle.get(), reading.get()}) peer->send(command(tag, cmd::getObj, 1));
  kit.settle();
  ASSERT_EQ(texts.waiting.size(), 60U);
  idle->setReading(false);
  testing::internal::CaptureStdout();
  for (auto& request : std::exchange(texts.waiting, {})) {
    texts.replyMessage(request, {{key::name, std::string(1000, 'x')}});
    kit.settle();
  }
  EXPECT_TRUE(idle->cut());
  EXPECT_NE(testing::internal::GetCapturedStdout().find("it does not read what is sent to it"),
            std::string::npos);
  EXPECT_FALSE(reading->cut());
  EXPECT_EQ(reading->received().size(), 30U);
}

TEST_F(TightBus, UndoRecordsMakeRoomByTheirBytesButTheLastStays) {
  ListHandler texts;
  serve(texts);
  auto peer = kit.connect();
  const auto change = [&](std::size_t bytes) {
    peer->send(setText(1, 1, std::string(bytes, 'x')));
    kit.settle();
    peer->received();
  };
  const auto records = [&] {
    peer->send(command(2, cmd::getUndo));
    kit.settle();
    return peer->received().at(0).get(key::objects);
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
