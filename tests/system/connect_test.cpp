/// What a client is told when it cannot connect.

#include <memory>

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

/// Does `call`, which is bind or connect, with a new socket and a path; the socket, or -1.
int socketThat(int (*call)(int, const sockaddr*, socklen_t), const std::filesystem::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.native().copy(address.sun_path, sizeof address.sun_path - 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  return call(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? fd : -1;
}

/// A socket on which somebody listens and accepts nobody, with room for one.
int listenOn(const std::filesystem::path& path) {
  std::filesystem::create_directories(path.parent_path());
  const int fd = socketThat(bind, path);
  EXPECT_EQ(listen(fd, 0), 0);
  return fd;
}

class Connect : public ::testing::Test {
 protected:
  Connect() { connectBus(place.bus()); }
  ~Connect() override { getLooper()->assemble({}); }

  Post post(std::uint32_t timeout, message request = command(cmd::getCount)) {
    return Post(
        request, [&](const message& reply) { answer = reply; }, timeout);
  }
  message answerTo(const Post& asked) {
    while (asked.pending()) getLooper()->runOnce(true);
    return answer;
  }
  message ask(std::uint32_t timeout) { return answerTo(post(timeout)); }

  Place place;
  message answer;
};

TEST_F(Connect, WhereNobodyListensItSaysSo) {
  EXPECT_EQ(getError(ask(5000)), "nobody listens there");
  close(listenOn(place.socket()));  // the socket of a dead service
  EXPECT_EQ(getError(ask(5000)), "nobody listens there");
}

TEST_F(Connect, AUserWhoMayNotConnectIsToldSo) {
  const int listener = listenOn(place.socket());
  std::filesystem::permissions(place.socket(), std::filesystem::perms(0));
  const auto user = geteuid();
  ASSERT_EQ(seteuid(user == 0 ? kNobody.uid : user), 0);
  ask(5000);
  ASSERT_EQ(seteuid(user), 0);
  EXPECT_EQ(errorCode(answer), err::noRoute);
  EXPECT_EQ(getError(answer),
            "cannot connect to " + place.socket().string() + ": Permission denied");
  close(listener);
}

TEST_F(Connect, WhoAsksTooMuchIsToldSoBeforeItIsCut) {
  ServiceProcess service(place);
  ASSERT_TRUE(service.start()) << service.said();
  const auto limits = Limits();
  const std::vector<unsigned char> large(2 * limits.frameBytes);
  const auto refusal = answerTo(post(5000, command(cmd::getCount).insert(raw_id(9), large)));
  EXPECT_TRUE(getError(refusal).ends_with(" bytes is over the limit")) << getError(refusal);

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
  while (socketThat(connect, place.socket()) >= 0) {  // and they wait as long as the test lasts
  }
  const auto refused = ask(100);
  EXPECT_EQ(errorCode(refused), err::timedOut);
  EXPECT_EQ(getError(refused), "the service takes no more connections for now");

  const Post patient = post(20000);
  getLooper()->runOnce(false);
  while (patient.pending()) {  // Now somebody takes in those who wait, and lets them go.
    if (const int fd = accept(listener, nullptr, nullptr); fd >= 0) close(fd);
    getLooper()->runOnce(true);
  }
  EXPECT_EQ(getError(answer), "the connection ended");
  close(listener);
}

}  // namespace
}  // namespace nv::testkit
