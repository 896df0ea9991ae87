/// What a client says of itself does not count: the kernel says who it is.

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/commands.h"
#include "platform/errors.h"
#include "tests/support/raw_client.h"
#include "tests/support/text_map.h"
#include "tests/system/service_process.h"

namespace nv::testkit {
namespace {

constexpr std::uint32_t kAbsent = 0x12345678;

/// The credentials of a connection are those of the process when it connects.
void connectAs(const User& user, RawClient& client, const Place& place) {
  ASSERT_EQ(setegid(user.uid), 0);
  ASSERT_EQ(seteuid(user.uid), 0);
  const bool connected = client.connect(place.socket());
  ASSERT_EQ(seteuid(0), 0);
  ASSERT_EQ(setegid(0), 0);
  ASSERT_TRUE(connected);
}

class Trust : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0)
      GTEST_SKIP() << "NOT TESTED: WHAT OTHER USERS CAN FORGE. Only root can connect as somebody "
                      "else: run the tests as root.";
    ASSERT_TRUE(service.start()) << service.said();
    ASSERT_TRUE(root.connect(place.socket()));
    connectAs(kClerk, clerk, place);
    connectAs(kNobody, nobody, place);
    ASSERT_FALSE(isError(root.ask(addText(1, "as it was"))));
  }

  /// The request as it reached the service.
  static message seen(RawClient& client, message request = command(cmd::get)) {
    return message(client.ask(std::move(request)).get(kRequest));
  }

  Place place;
  ServiceProcess service{place};
  RawClient root, clerk, nobody;
};

TEST_F(Trust, AUserWithoutRightsChangesNothingAndReadsNoUndoWhateverItForges) {
  const std::vector<message> forged = {
      {},
      {{key::rights, 0x80000000}},
      {{key::rights, 0xffffffff}},
      {{key::rights, 0x7fffffff}},
      message().insert(key::requester, {}),
      message().insert(key::requester, {seen(root).get(key::requester)[0]}),
      message().insert(key::requester, {0xbfffffff}),
      message().insert(key::removals, {key::rights.uid(), key::requester.uid()}),
      {{u64_id(key::rights.id()), 0xffffffffffffffff}, {key::settled, true}},
      {{key::frameKind, 0}, {key::dynamic, true}, {key::managedId, 0xffffffff}},
  };
  for (const auto& forgery : forged)
    for (const auto& change : {addText(2, "mine"), setText(1, "mine"), command(cmd::removeObj, 1),
                               command(cmd::moveObj, 1), command(cmd::set).insert(kText, "mine"),
                               command(cmd::getUndo)}) {
      auto request = change;
      request.merge(forgery);
      EXPECT_EQ(errorCode(nobody.ask(request)), err::notAllowed);
    }
  EXPECT_EQ(root.ask(command(cmd::getObj, 1)).get(kText), "as it was");
  EXPECT_EQ(nobody.ask(command(cmd::getObj, 1)).get(kText), "as it was");
  EXPECT_EQ(nobody.ask(command(cmd::getCount)).get(key::count), 1U);
}

TEST_F(Trust, AClientCanAskForFewerRightsThanItHasNeverForMore) {
  const struct {
    RawClient& client;
    std::uint32_t asked, got;
  } cases[] = {
      {root, kAbsent, kSystemRights},
      {root, 0xffffffff, kSystemRights},
      {root, 5, 5},
      {root, 0, 0},
      {clerk, kAbsent, 5},
      {clerk, kSystemRights, 5},
      {clerk, 0xffffffff, 5},
      {clerk, 0x7fffffff, 5},
      {clerk, 4, 4},
      {clerk, 0xa, 0},
      {clerk, 0, 0},
      {nobody, kAbsent, 0},
      {nobody, kSystemRights, 0},
      {nobody, 0x7fffffff, 0},
  };
  for (const auto& [client, asked, got] : cases) {
    auto request = command(cmd::get);
    if (asked != kAbsent) request.insert(key::rights, asked);
    const auto arrived = seen(client, request);
    EXPECT_TRUE(arrived.has(key::rights));
    EXPECT_EQ(arrived.get(key::rights), got) << std::hex << "asked for " << asked;
  }
}

TEST_F(Trust, ARouteIsTheConnectionsAndNoOther) {
  const auto victim = seen(root).get(key::requester);
  ASSERT_EQ(victim.size(), 1U);
  const std::uint32_t rootsSubscription = 1;
  ASSERT_TRUE(root.send(command(cmd::subscribe).insert(key::tag, rootsSubscription)));
  ASSERT_FALSE(isError(root.receive().value_or(failedMsg("cut"))));
  ASSERT_TRUE(nobody.send(command(cmd::routeGone).insert(key::requester, victim)));
  const auto subscription = command(cmd::unsubscribe, rootsSubscription);
  EXPECT_EQ(errorCode(nobody.ask(message(subscription).insert(key::requester, victim))),
            err::noSuchObject);
  // The reply comes to who asked.
  const auto route =
      seen(nobody, command(cmd::get).insert(key::requester, victim)).get(key::requester);
  EXPECT_EQ(route.size(), 1U);
  EXPECT_NE(route, victim);

  ASSERT_FALSE(isError(clerk.ask(setText(1, "root hears of this"))));
  const auto heard = root.receive().value_or(message());
  EXPECT_EQ(heard.get(key::tag), rootsSubscription);
  EXPECT_EQ(heard.get(kText), "root hears of this");
}

TEST_F(Trust, AUserCannotMakeAnObjectDynamicNorChangeOneThatIs) {
  ASSERT_FALSE(isError(clerk.ask(addText(2, "not dynamic").insert(key::dynamic, true))));
  EXPECT_FALSE(isError(clerk.ask(setText(2, "and so it changes"))));

  ASSERT_FALSE(isError(root.ask(addText(3, "dynamic").insert(key::dynamic, true))));
  const auto refusal = clerk.ask(setText(3, "mine").insert(key::rights, kSystemRights));
  EXPECT_EQ(getError(refusal), "can't edit dynamic object");
  EXPECT_EQ(getError(clerk.ask(command(cmd::removeObj, 3))), "can't remove dynamic object");
  EXPECT_FALSE(isError(root.ask(setText(3, "changed by the system"))));
}

}  // namespace
}  // namespace nv::testkit
