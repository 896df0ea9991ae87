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

/// The request as it reached the service.
message seen(RawClient& client, const message& request = command(cmd::get)) {
  return message(client.ask(request).get(kRequest));
}

TEST(Trust, AClientHasItsOwnRouteAndCanAskForFewerRightsThanItsUserHasNeverForMore) {
  if (geteuid() != 0)
    GTEST_SKIP() << "NOT TESTED: WHAT OTHER USERS CAN FORGE. Only root can connect as somebody "
                    "else: run the tests as root.";
  const Place place;
  ServiceProcess service(place);
  ASSERT_TRUE(service.start()) << service.said();
  RawClient root(place.socket()), clerk, nobody;
  connectAs(kClerk, clerk, place);
  connectAs(kNobody, nobody, place);
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
  const auto victim = seen(root).get(key::requester);
  for (const auto& [client, asked, got] : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << "asked for " << asked);
    message forged{{key::requester, victim}};
    if (asked != kAbsent) forged.insert(key::rights, asked);
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
