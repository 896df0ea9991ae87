/// What subscribers hear, when, and for how long.

#include <gtest/gtest.h>

#include "tests/platform/bus_fixture.h"

namespace nv::testkit {
namespace {

TEST_F(Bus, ManyChangesOfOneObjectInAPassAreOneNotification) {
  ListHandler texts;
  serve(texts);
  auto peer = kit.connect();
  peer->send(command(1, cmd::subscribe));
  EXPECT_EQ(said(*peer), "1 ok");
  for (int i = 0; i < 10; ++i) texts.put(7, std::to_string(i));
  texts.put(8, "eight");
  texts.fetches = 0;
  EXPECT_EQ(said(*peer), "~1 7=9, ~1 8=eight");
  EXPECT_EQ(texts.fetches, 2);
  texts.texts.erase(7);
  texts.notifyChange(7, true, nullptr, {});
  EXPECT_EQ(said(*peer), "~1 7 gone");
}

TEST_F(Bus, SubscribersWithOneFlagsWordShareAFetchAndNeverSeeTheStoredForm) {
  ListHandler texts;
  serve(texts);
  std::vector<std::unique_ptr<BusPeer>> peers;
  for (const std::uint32_t flags : {5U, 5U, 5U, 0xc0000007U}) {
    peers.push_back(kit.connect());
    auto msg = command(1, cmd::subscribe);
    msg.insert(key::getFlags, flags);
    peers.back()->send(msg);
  }
  kit.settle();
  texts.put(1, "one");
  texts.fetches = 0;
  kit.settle();
  EXPECT_EQ(texts.fetches, 2);
  EXPECT_EQ(texts.lastFlags, 0x40000007U);
  for (auto& peer : peers) EXPECT_EQ(line(peer->received()), "1 ok, ~1 1=one");
}

TEST_F(Bus, ACookieAddressesOneSubscriberUntilItIsGone) {
  struct Picky : ListHandler {
    void* subscribe(const message& request, bool& plain) override {
      return last = ListHandler::subscribe(request, plain);
    }
    void* last = nullptr;
  } texts;
  serve(texts);
  auto all = kit.connect(), one = kit.connect();
  all->send(command(1, cmd::subscribe));
  auto filtered = command(2, cmd::subscribe);
  filtered.append(key::about, "filter");
  kit.settle();
  one->send(filtered);
  kit.settle();
  void* const cookie = texts.last;
  texts.texts[3] = "three";
  texts.notifyChange(3, false, cookie, {});
  EXPECT_EQ(said(*all), "1 ok");
  EXPECT_EQ(said(*one), "2 ok, ~2 3=three");
  texts.put(4, "four");
  EXPECT_EQ(said(*all), "~1 4=four");
  EXPECT_EQ(said(*one), "");

  texts.notifyChange(3, false, cookie, {});
  one->close();
  EXPECT_EQ(said(*all), "");
  EXPECT_EQ(texts.subscribers, 1);
  texts.notifyChange(3, false, cookie, {});  // a cookie of the past names nobody
  EXPECT_EQ(said(*all), "");
}

TEST_F(Bus, ASubscriberThatStopsReadingCostsAMarkAnObjectAndDelaysNobody) {
  ListHandler texts;
  serve(texts);
  auto slow = kit.connect(), quick = kit.connect();
  slow->send(command(1, cmd::subscribe));
  quick->send(command(1, cmd::subscribe));
  kit.settle();
  slow->received();
  quick->received();
  slow->setReading(false);
  constexpr std::uint32_t kObjects = 50;
  std::size_t heard = 0;
  for (int round = 0; round < 100; ++round)
    for (std::uint32_t id = 0; id < kObjects; ++id) {
      texts.put(id, std::string(1000, 'a') + std::to_string(round));
      kit.settle();
      heard += quick->received().size();
    }
  EXPECT_EQ(heard, 100 * kObjects);
  EXPECT_EQ(texts.stalled, 1);

  slow->setReading(true);
  for (int i = 0; i < 100; ++i) kit.settle();
  EXPECT_EQ(texts.stalled, 0);
  const auto late = slow->received();
  EXPECT_LE(late.size(), kObjects + 70);  // what had left before it stalled, then each object once
  std::map<std::uint32_t, std::string> last;
  for (const auto& msg : late) last[msg.get(key::objectId)] = msg.get(key::name);
  EXPECT_EQ(last, texts.texts);
  EXPECT_FALSE(slow->cut());
}

TEST_F(Bus, TheEndOfAConnectionDropsItsSubscriptions) {
  ListHandler texts;
  serve(texts);
  auto peer = kit.connect();
  peer->send(command(1, cmd::subscribe));
  peer->send(command(2, cmd::subscribe));
  kit.settle();
  EXPECT_EQ(texts.subscribers, 2);
  peer->close();
  kit.settle();
  EXPECT_EQ(texts.subscribers, 0);
  texts.put(1, "nobody hears");
  texts.fetches = 0;
  kit.settle();
  EXPECT_EQ(texts.fetches, 0);
}

TEST_F(Bus, AHandlerMayGoWithNotificationsAndSubscribersLeft) {
  auto texts = std::make_unique<ListHandler>();
  serve(*texts);
  auto peer = kit.connect();
  peer->send(command(1, cmd::subscribe));
  kit.settle();
  peer->received();
  texts->put(1, "too late");
  texts.reset();
  EXPECT_EQ(said(*peer), "");
  peer->send(command(2, cmd::getCount));
  EXPECT_EQ(said(*peer), "2 fe0102");
}

}  // namespace
}  // namespace nv::testkit
