/// What subscribers hear, when, and for how long.

#include "tests/platform/bus_fixture.h"

namespace nv::testkit {
namespace {

TEST_F(Bus, ChangesOfOneObjectInAPassAreOneFetchForAllWithOneFlagsWordWhichIsNeverTheStoredForm) {
  std::vector<std::unique_ptr<BusPeer>> peers;
  for (const std::uint32_t flags : {5U, 5U, 5U, 0xc0000007U}) {
    peers.push_back(kit.connect());
    peers.back()->send(command(1, cmd::subscribe).insert(key::getFlags, flags));
  }
  kit.settle();
  for (int i = 0; i < 10; ++i) texts.put(7, std::to_string(i));
  texts.put(8, "eight");
  texts.fetches = 0;
  kit.settle();
  EXPECT_EQ(texts.fetches, 4);
  EXPECT_EQ(texts.lastFlags, 0x40000007U);
  texts.cmdRemoveObj({}, 7);
  for (auto& peer : peers) EXPECT_EQ(said(*peer), "1 ok, ~1 7=9, ~1 8=eight, ~1 7 gone");
}

TEST_F(Bus, ACookieAddressesOneSubscriberUntilItIsGone) {
  struct Picky : ListHandler {
    void* subscribe(const message& request, bool& plain) override {
      return last = ListHandler::subscribe(request, plain);
    }
    void* last = nullptr;
  } picky;
  serve(picky);
  auto all = subscriber(), one = kit.connect();
  EXPECT_EQ(said(*one, command(2, cmd::subscribe).append(key::about, "filter")), "2 ok");
  void* const cookie = picky.last;
  picky.texts[3] = "three";
  picky.notifyChange(3, false, cookie, {});
  EXPECT_EQ(said(*all), "");
  EXPECT_EQ(said(*one), "~2 3=three");
  picky.put(4, "four");
  EXPECT_EQ(said(*all), "~1 4=four");
  EXPECT_EQ(said(*one), "");

  picky.notifyChange(3, false, cookie, {});
  one->close();
  EXPECT_EQ(said(*all), "");
  EXPECT_EQ(picky.subscribers, 1);
  picky.notifyChange(3, false, cookie, {});  // a cookie of the past names nobody
  EXPECT_EQ(said(*all), "");
}

TEST_F(Bus, ASubscriptionThatNeedsTooManyMarksEndsAndTheOthersGoOn) {
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
      {"many more", 2, false, 5 * marks, true},
      {"neighbours", 1, false, 20 * marks, false},
      {"apart and removed", 2, true, marks / 2 + 1, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.ids);
    auto peer = subscriber(), slow = subscriber();
    slow->setReading(false);
    texts.put(0xffff0000, std::string(Limits().queuedBytes, 'x'));
    kit.settle();
    for (std::uint32_t i = 0; i < c.changes; ++i)
      texts.notifyChange(10 + i * c.step, c.removed, nullptr, {});
    EXPECT_EQ(heard(*peer).size(), c.changes + 1) << "who reads hears of all";
    EXPECT_EQ(texts.subscribers, c.ends ? 1 : 2);
    slow->setReading(true);
    for (int i = 0; i < 50; ++i) kit.settle();
    const auto late = slow->received();
    EXPECT_EQ(line({late.back()}) == "~1 ended", c.ends);
    if (!c.ends) {
      EXPECT_EQ(late.size(), c.changes + 1U);
      EXPECT_EQ(texts.stalled, 0);
    }
    slow->close();
    peer->close();
    kit.settle();
    EXPECT_EQ(texts.subscribers, 0);
    texts.stalled = 0;  // one that ended is not resumed
  }
}

TEST_F(Bus, ASlowSubscriberIsToldOfARemovalWhateverTheObjectAnswersLater) {
  auto slow = subscriber();
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
  EXPECT_TRUE(said(*slow).ends_with("~1 2 gone, ~1 3=there, ~1 4=there"));
}

TEST_F(Bus, ASubscriptionEndsWhenAnotherHandlerTakesThePlace) {
  ListHandler after;
  auto peer = subscriber();
  serve(texts);  // again: nothing has changed
  EXPECT_EQ(said(*peer), "");
  serve(after);
  EXPECT_EQ(said(*peer), "~1 ended");
  EXPECT_EQ(texts.subscribers, 0);
  getLooper()->removeHandler(&texts);
  EXPECT_EQ(said(*peer, command(2, cmd::subscribe)), "2 ok");
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
    auto mortal = std::make_unique<Mortal>();
    serve(*mortal);
    auto peer = subscriber(3), slow = subscriber(3);
    mortal->diesIn = place;
    mortal->die = [&] { mortal.reset(); };

    slow->setReading(false);
    for (std::uint32_t id = 1; id <= 100 && mortal; ++id) {
      mortal->put(id, std::string(1000, 'x'));
      kit.settle();
    }
    slow->setReading(true);
    kit.settle();
    peer->send(command(4, cmd::unsubscribe, 1));
    peer->send(command(5, cmd::get));
    const auto last = said(*peer, command(6, cmd::subscribe));
    EXPECT_FALSE(mortal);
    EXPECT_NE(last.find("~2 ended, ~3 ended"), std::string::npos) << last;
    slow->received();
    EXPECT_EQ(said(*peer, command(7, cmd::getCount)), "7 fe0102");
    EXPECT_EQ(said(*slow), "");
  }
}

TEST_F(Bus, AHandlerMayGoWithNotificationsLeftOrWhenASubscriberHangsUp) {
  for (const bool hangUp : {false, true}) {
    auto mortal = std::make_unique<Mortal>();
    serve(*mortal);
    auto leaving = subscriber(2), peer = subscriber();
    mortal->diesIn = "unsubscribe";
    mortal->die = [&] { mortal.reset(); };
    if (hangUp) {
      leaving->close();
    } else {
      mortal->put(1, "too late");
      mortal.reset();
    }
    EXPECT_EQ(said(*peer), "~1 ended");
    EXPECT_EQ(said(*peer, command(2, cmd::getCount)), "2 fe0102");
  }
}

}  // namespace
}  // namespace nv::testkit
