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

TEST_F(Bus, ASubscriptionThatNeedsTooManyMarksEndsAndTheOthersGoOn) {
  ListHandler texts;
  serve(texts);
  auto peer = kit.connect();
  const auto marks = static_cast<std::uint32_t>(Limits().marks);
  const struct {
    const char* ids;
    std::uint32_t step;
    bool removed;
    std::uint32_t changes;
    bool ends;
  } cases[] = {
      {"as many as may be, apart", 2, false, marks, false},
      {"one more", 2, false, marks + 1, true},
      {"neighbours", 1, false, 20 * marks, false},
      {"apart and removed", 2, true, marks / 2 + 1, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.ids);
    auto slow = kit.connect();
    peer->send(command(1, cmd::subscribe));
    slow->send(command(1, cmd::subscribe));
    kit.settle();
    slow->setReading(false);
    texts.put(0xffff0000, std::string(Limits().queuedBytes, 'x'));
    kit.settle();
    for (std::uint32_t i = 0; i < c.changes; ++i)
      texts.notifyChange(10 + i * c.step, c.removed, nullptr, {});
    kit.settle();
    EXPECT_EQ(texts.subscribers, c.ends ? 1 : 2);
    EXPECT_GE(peer->received().size(), c.changes) << "who reads hears of all";
    slow->setReading(true);
    for (int i = 0; i < 50; ++i) kit.settle();
    const auto heard = slow->received();
    EXPECT_EQ(line({heard.back()}) == "~1 ended", c.ends);
    if (!c.ends) {
      EXPECT_EQ(heard.size(), c.changes + 2U);
    }
    slow->close();
    peer->send(command(2, cmd::unsubscribe, 1));
    kit.settle();
    peer->received();
    texts.stalled = 0;  // one that ended is not resumed
  }
}

TEST_F(Bus, WhoReadsKeepsASubscriptionHoweverMuchChangesInOnePass) {
  ListHandler texts;
  serve(texts);
  auto peer = kit.connect();
  peer->send(command(1, cmd::subscribe));
  kit.settle();
  constexpr std::uint32_t kChanges = 5000;
  for (std::uint32_t i = 0; i < kChanges; ++i) texts.notifyChange(2 * i, false, nullptr, {});
  for (int i = 0; i < 20; ++i) kit.settle();
  EXPECT_EQ(texts.subscribers, 1);
  EXPECT_EQ(peer->received().size(), kChanges + 1);
}

TEST_F(Bus, ASlowSubscriberIsToldOfARemovalWhateverTheObjectAnswersLater) {
  ListHandler texts;
  serve(texts);
  auto slow = kit.connect();
  slow->send(command(1, cmd::subscribe));
  kit.settle();
  slow->setReading(false);
  for (int i = 0; !texts.stalled; ++i) {
    texts.put(1, std::string(10000, 'x') + std::to_string(i));
    kit.settle();
  }
  for (const std::uint32_t id : {2U, 3U, 4U}) texts.texts[id] = "there";
  texts.notifyChange(2, true, nullptr, {});
  texts.notifyChange(3, true, nullptr, {});
  kit.settle();
  texts.notifyChange(3, false, nullptr, {});
  texts.notifyChange(4, false, nullptr, {});
  kit.settle();
  slow->setReading(true);
  for (int i = 0; i < 3; ++i) kit.settle();
  const auto heard = line(slow->received());
  const std::string late = "~1 2 gone, ~1 3=there, ~1 4=there";
  EXPECT_EQ(heard.substr(heard.size() - late.size()), late);
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
  EXPECT_EQ(said(*peer), "~1 ended");
  peer->send(command(2, cmd::getCount));
  EXPECT_EQ(said(*peer), "2 fe0102");
}

TEST_F(Bus, ASubscriptionEndsWhenAnotherHandlerTakesThePlace) {
  ListHandler before, after;
  serve(before);
  auto peer = kit.connect();
  peer->send(command(1, cmd::subscribe));
  kit.settle();
  peer->received();
  serve(before);  // again: nothing has changed
  EXPECT_EQ(said(*peer), "");
  serve(after);
  EXPECT_EQ(said(*peer), "~1 ended");
  EXPECT_EQ(before.subscribers, 0);
  getLooper()->removeHandler(&before);
  peer->send(command(2, cmd::subscribe));
  EXPECT_EQ(said(*peer), "2 ok");
  after.put(1, "one");
  EXPECT_EQ(said(*peer), "~2 1=one");
}

/// Destroys itself in one of its own operations.
class Mortal : public ListHandler {
 public:
  static constexpr const char* kPlaces[] = {"subscribe", "unsubscribe", "getObject",
                                            "stalled",   "resumed",     "cmdGet"};
  std::string diesIn;
  std::function<void()> die;

  void* subscribe(const message& request, bool& plain) override {
    auto* const cookie = ListHandler::subscribe(request, plain);
    at("subscribe");
    return cookie;
  }
  void unsubscribe(const message&, void*) override { at("unsubscribe"); }
  message getObject(std::uint32_t id, std::uint32_t flags) override {
    auto object = ListHandler::getObject(id, flags);
    at("getObject");
    return object;
  }
  void subscriberStalled(void*) override { at("stalled"); }
  void subscriberResumed(void*) override { at("resumed"); }
  message cmdGet(const message&) override {
    at("cmdGet");
    return {};
  }

 private:
  void at(const std::string& place) {
    if (place == diesIn) std::exchange(die, {})();
  }
};

TEST_F(Bus, AHandlerMayDestroyItselfInAnyOfItsOperations) {
  for (const std::string place : Mortal::kPlaces) {
    SCOPED_TRACE(place);
    auto texts = std::make_unique<Mortal>();
    serve(*texts);
    auto peer = kit.connect(), slow = kit.connect();
    for (std::uint32_t tag = 1; tag <= 3; ++tag) peer->send(command(tag, cmd::subscribe));
    for (std::uint32_t tag = 1; tag <= 3; ++tag) slow->send(command(tag, cmd::subscribe));
    EXPECT_EQ(said(*peer), "1 ok, 2 ok, 3 ok");
    texts->diesIn = place;
    texts->die = [&] { texts.reset(); };

    slow->setReading(false);
    for (std::uint32_t id = 1; id <= 100 && texts; ++id) {
      texts->put(id, std::string(1000, 'x'));
      kit.settle();
    }
    slow->setReading(true);
    kit.settle();
    peer->send(command(4, cmd::unsubscribe, 1));
    peer->send(command(5, cmd::get));
    peer->send(command(6, cmd::subscribe));
    kit.settle();
    const auto heard = line(peer->received());
    EXPECT_FALSE(texts);
    EXPECT_NE(heard.find("~2 ended, ~3 ended"), std::string::npos) << heard;
    slow->received();
    peer->send(command(7, cmd::getCount));
    EXPECT_EQ(said(*peer), "7 fe0102");
    EXPECT_EQ(said(*slow), "");
  }
}

TEST_F(Bus, AHandlerMayDestroyItselfWhenASubscriberHangsUp) {
  auto texts = std::make_unique<Mortal>();
  serve(*texts);
  auto leaving = kit.connect(), peer = kit.connect();
  leaving->send(command(1, cmd::subscribe));
  leaving->send(command(2, cmd::subscribe));
  peer->send(command(1, cmd::subscribe));
  EXPECT_EQ(said(*peer), "1 ok");
  texts->diesIn = "unsubscribe";
  texts->die = [&] { texts.reset(); };
  leaving->close();
  EXPECT_EQ(said(*peer), "~1 ended");
}

}  // namespace
}  // namespace nv::testkit
