/// What a client is told when it cannot connect.

#include <memory>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/client.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/limits.h"
#include "platform/looper.h"
#include "platform/post.h"
#include "tests/support/raw_client.h"
#include "tests/system/service_process.h"

namespace nv::testkit {
namespace {

sockaddr_un addressOf(const std::filesystem::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.native().copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

/// A socket on which somebody listens and accepts nobody, with room for one.
int listenOn(const std::filesystem::path& path) {
  std::filesystem::create_directories(path.parent_path());
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const auto address = addressOf(path);
  EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(listen(fd, 0), 0);
  return fd;
}

/// Waits to be accepted for as long as the test lasts; false when there is no room.
bool waitThere(const std::filesystem::path& path) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const auto address = addressOf(path);
  return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

class Connect : public ::testing::Test {
 protected:
  Connect() { connectBus(place.bus()); }
  ~Connect() override { getLooper()->assemble({}); }

  message ask(std::uint32_t timeout) {
    auto request = command(cmd::getCount);
    message answer;
    bool answered = false;
    const Post post(
        request,
        [&](const message& reply) {
          answer = reply;
          answered = true;
        },
        timeout);
    while (!answered) getLooper()->runOnce(true);
    return answer;
  }

  Place place;
};

TEST_F(Connect, WhereNobodyListensItSaysSo) {
  EXPECT_EQ(getError(ask(5000)), "nobody listens there");
  close(listenOn(place.socket()));  // the socket of a dead service
  EXPECT_EQ(getError(ask(5000)), "nobody listens there");
}

TEST_F(Connect, AUserWhoMayNotConnectIsToldSo) {
  const int listener = listenOn(place.socket());
  std::filesystem::permissions(place.socket(), std::filesystem::perms(0));
  if (geteuid() == 0) {
    ASSERT_EQ(seteuid(kNobody.uid), 0);
  }
  const auto answer = ask(5000);
  if (getuid() == 0) {
    ASSERT_EQ(seteuid(0), 0);
  }
  EXPECT_EQ(errorCode(answer), err::noRoute);
  EXPECT_EQ(getError(answer),
            "cannot connect to " + place.socket().string() + ": Permission denied");
  close(listener);
}

TEST_F(Connect, WhoAsksTooMuchIsToldSoBeforeItIsCut) {
  ServiceProcess service(place);
  ASSERT_TRUE(service.start()) << service.said();
  const auto limits = Limits();
  std::string answer;
  auto request = command(cmd::getCount);
  request.insert(raw_id(9), std::vector<unsigned char>(2 * limits.frameBytes));
  const Post post(
      request, [&](const message& reply) { answer = getError(reply); }, 5000);
  while (answer.empty()) getLooper()->runOnce(true);
  EXPECT_NE(answer.find(" bytes is over the limit"), std::string::npos) << answer;

  std::vector<std::unique_ptr<RawClient>> crowd;
  for (std::size_t i = 0; i < limits.connectionsPerUser; ++i) {
    crowd.push_back(std::make_unique<RawClient>(place.socket()));
    ASSERT_FALSE(crowd.back()->ask(command(cmd::getCount)).empty());
  }
  const auto refused = ask(5000);
  EXPECT_EQ(errorCode(refused), err::tooMany);
  EXPECT_EQ(getError(refused), "this user has too many connections");
}

TEST_F(Connect, ABusyServiceIsTriedAgainUntilTheTimeIsOver) {
  const int listener = listenOn(place.socket());
  while (waitThere(place.socket())) {
  }
  const auto refused = ask(100);
  EXPECT_EQ(errorCode(refused), err::timedOut);
  EXPECT_EQ(getError(refused), "the service takes no more connections for now");

  auto request = command(cmd::getCount);
  std::string answer;
  const Post post(
      request, [&](const message& reply) { answer = getError(reply); }, 20000);
  getLooper()->runOnce(false);
  // Now somebody takes in those who wait, and lets them go.
  ASSERT_GE(fcntl(listener, F_SETFL, O_NONBLOCK), 0);
  while (answer.empty()) {
    if (const int fd = accept(listener, nullptr, nullptr); fd >= 0) close(fd);
    getLooper()->runOnce(true);
  }
  EXPECT_EQ(answer, "the connection ended");
  close(listener);
}

}  // namespace
}  // namespace nv::testkit
