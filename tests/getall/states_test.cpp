// Ids of iterations, and how they end.
#include <optional>

#include "tests/support/getall_fixture.h"

using namespace test;

namespace {

class GetallStates : public GetallTest {
 protected:
  /// The reply to a request for this state, whether it is there or not.
  std::string at(unsigned number, const Route& from) {
    told();
    askOn(number, {}, from);
    if (kit->seen().replies.empty()) kit->advance(100);
    return told();
  }
};

TEST_F(GetallStates, HaveTheLowestFreeIdOfTheirRouteWhichAreLimited) {
  constexpr unsigned kMost = 4092;
  for (unsigned k = 0; k < kMost; ++k) open();
  open({}, {5, 1});
  open({}, {});
  kit->advance(100);
  EXPECT_EQ(kit->seen().replies.at(kMost - 1).reply.get(key::startId), 0xfffffffcU);
  for (const auto& other : {kMost, kMost + 1})
    EXPECT_EQ(textOf(kit->seen().replies.at(other).reply), ">s1");
  told();
  open();
  EXPECT_EQ(told(), "error 12");
  EXPECT_EQ(getall->made, kMost + 2);
  stop(kFirstState + 3000);
  EXPECT_EQ(told(), "other") << "the manager says that it is done";
  open();
  EXPECT_EQ(toldAfter(100), ">s3001");
}

TEST_F(GetallStates, EndWhenTheirClientSaysSo) {
  const std::vector<Route> routes{{5}, {5}, {5, 9}, {6}, {5, 8, 1}, {50}};
  const struct {
    Route from;
    std::uint32_t code;
    std::optional<std::uint32_t> id;
    std::size_t left;
  } cases[] = {
      {{5}, cmd::stopGetAll, kFirstState, 5},
      {{5, 9}, cmd::stopGetAll, kFirstState, 5},
      {{5, 9}, cmd::stopGetAll, kFirstState + 1, 6},
      {{5}, cmd::stopGetAll, std::nullopt, 6},
      {{5}, cmd::stopGetAll, kNoId, 2},  // under this route, like a route that is gone
      {{5}, cmd::routeGone, std::nullopt, 2},
      {{5, 9}, cmd::routeGone, std::nullopt, 5},
      {{5, 9, 1}, cmd::routeGone, std::nullopt, 6},
      {{}, cmd::routeGone, std::nullopt, 6},
      {{}, cmd::stopGetAll, kNoId, 6},
  };
  unsigned passedOn = 0;
  cm->doCmd = [&](nv::Handler*, const message&) { ++passedOn; };
  getall->setCm(cm.get());
  for (const auto& [from, code, id, left] : cases) {
    SCOPED_TRACE(::testing::PrintToString(from) + " " + std::to_string(code));
    auto request = command(code);
    if (id) request.insert(key::startId, *id);
    for (const auto first : {5u, 6u, 50u}) gone({first});
    ASSERT_EQ(alive(), 0U);
    passedOn = 0;
    for (const auto& route : routes) open({}, route);
    told();
    send(request, {from, {}});
    EXPECT_EQ(alive(), left);
    EXPECT_EQ(passedOn, 1U);
    EXPECT_EQ(told(), "") << "a request that waits is not answered";
  }
}

TEST_F(GetallStates, AreCleanedUpEveryHundredMillisecondsWhenNothingIsLeft) {
  open({}, {5});  // the clock of the clean-up begins with the first
  kit->advance(30);
  open({}, {6});
  open({}, {7});
  for (unsigned k = 0; k < 3; ++k) state(k).done();
  told();
  state(1).addAll({1});
  EXPECT_EQ(at(1, {5}), ".") << "it is still there";
  kit->advance(69);
  EXPECT_EQ(alive(), 3U);
  kit->advance(1);
  EXPECT_EQ(alive(), 1U);
  EXPECT_EQ(at(1, {5}), "error 4");
  EXPECT_EQ(at(1, {6}), "1 .");
  kit->advance(99);
  EXPECT_EQ(alive(), 1U);
  kit->advance(1);
  EXPECT_EQ(alive(), 0U);
  EXPECT_FALSE(nv::getLooper()->nextTimer()) << "without states nothing ticks";

  kit->advance(50);
  open();
  state().done();
  kit->advance(99);
  EXPECT_EQ(alive(), 1U) << "the first of the next ones starts it anew";
  kit->advance(1);
  EXPECT_EQ(alive(), 0U);
}

TEST_F(GetallStates, AreNotCleanedUpWhileTheyAreInUse) {
  open();
  kit->advance(10000);
  EXPECT_EQ(alive(), 1U) << "not done";
  state().onReply = [&](message&) { state().addAll({1}); };
  state().done();
  askOn(1);
  told();
  kit->advance(1000);
  EXPECT_EQ(alive(), 1U) << "a record is left";
  state().onReply = [&](message&) { askOn(1); };
  askOn(1);
  EXPECT_EQ(told(), ". | 1 .") << "each is answered, once";
  kit->advance(100);
  EXPECT_EQ(alive(), 0U);
}

}  // namespace
