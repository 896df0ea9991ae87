/// Whatever the moment at which a service ends: what it has acknowledged is there, and nothing by
/// halves.

#include <chrono>
#include <csignal>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <semaphore>
#include <thread>

#include <gtest/gtest.h>

#include "platform/commands.h"
#include "tests/support/random.h"
#include "tests/support/raw_client.h"
#include "tests/system/service_process.h"
#include "tests/system/twin_map.h"

namespace nv::testkit {
namespace {

#ifdef CONFKIT_SLOW
constexpr int kRounds = 11;
#else
constexpr int kRounds = 112;  // 100 kills
#endif
constexpr unsigned kWriters = 4;
constexpr unsigned kTextsOfAWriter = 20;
constexpr unsigned kInFlight = 4;

using Texts = std::map<std::uint32_t, std::string>;

/// A client that changes texts of its own, several requests ahead of the answers.
class Writer {
 public:
  Writer(unsigned number, unsigned seed) : firstId_(1 + number * kTextsOfAWriter), random_(seed) {}

  /// Until the connection ends; tells of each answer.
  void write(const std::filesystem::path& socket, std::counting_semaphore<>& answers) {
    RawClient client(socket);
    for (;;) {
      while (unanswered_.size() < kInFlight && client.send(change())) {
      }
      const auto reply = client.receive();
      if (!reply) break;
      EXPECT_FALSE(isError(*reply)) << getError(*reply);
      EXPECT_EQ(reply->get(key::tag), unanswered_.front().tag);
      apply(unanswered_.front(), acknowledged_);
      unanswered_.pop_front();
      answers.release();
    }
  }

  /// After a restart: what is there is what was acknowledged and, when the service was killed, of
  /// what was not answered any more the first changes, none without those before it.
  void compare(const Texts& found, bool killed) {
    if (!killed) unanswered_.clear();
    auto possible = acknowledged_;
    auto mine = Texts(found.lower_bound(firstId_), found.lower_bound(firstId_ + kTextsOfAWriter));
    while (possible != mine && !unanswered_.empty()) {
      apply(unanswered_.front(), possible);
      unanswered_.pop_front();
    }
    EXPECT_EQ(possible, mine);
    unanswered_.clear();
    acknowledged_ = latest_ = std::move(mine);
  }

 private:
  struct Change {
    std::uint32_t tag;
    std::uint32_t id;
    std::optional<std::string> text;  // none: removed
  };

  message change() {
    Change next{++lastTag_, firstId_ + random_.below(kTextsOfAWriter), {}};
    const bool there = latest_.contains(next.id);
    if (!there || random_.below(4) != 0)
      next.text = std::string(random_.below(3000), static_cast<char>('a' + random_.below(26)));
    auto request = !next.text ? command(cmd::removeObj, next.id)
                   : there    ? setText(next.id, *next.text)
                              : addText(next.id, *next.text);
    apply(next, latest_);
    unanswered_.push_back(next);
    return request.insert(key::tag, next.tag);
  }

  static void apply(const Change& change, Texts& texts) {
    texts.erase(change.id);
    if (change.text) texts[change.id] = *change.text;
  }

  std::uint32_t firstId_, lastTag_ = 0;
  Random random_;
  Texts acknowledged_, latest_;
  std::deque<Change> unanswered_;
};

/// All texts of the service. Each has its twin: the two stand in one transaction.
Texts readAll(const Place& place) {
  Texts texts;
  RawClient client(place.socket());
  for (auto start = kNoId;;) {
    const auto page = client.ask(command(cmd::getAll).insert(key::startId, start));
    for (const auto& flat : page.get(key::objects)) {
      const message object(flat);
      const auto id = object.get(key::objectId);
      texts[id] = object.get(kText);
      const auto whole = client.ask(command(cmd::getObj, id).insert(kWithTwin, true));
      EXPECT_EQ(whole.get(kTwin), texts[id]) << "text " << id;
    }
    if (!page.has(key::startId)) return texts;
    start = page.get(key::startId);
  }
}

TEST(Kill, EveryAcknowledgedChangeIsThereAndNoneIsHalfThere) {
  Random random;
  SCOPED_TRACE(random.seed());
  std::vector<std::unique_ptr<Writer>> writers;
  for (unsigned i = 0; i < kWriters; ++i)
    writers.push_back(std::make_unique<Writer>(i, random.below(1000000)));

  Place place;
  ServiceProcess service(place);
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    const bool killed = round % 10 != 0;  // or asked to end
    ASSERT_TRUE(service.start()) << service.said();
    std::counting_semaphore<> answers(0);
    std::vector<std::thread> clients;
    for (auto& writer : writers)
      clients.emplace_back([&] { writer->write(place.socket(), answers); });
    bool answered = true;
    for (unsigned enough = random.below(200); answered && enough > 0; --enough)
      answered = answers.try_acquire_for(std::chrono::seconds(20));
    EXPECT_TRUE(answered) << service.said();
    // An answer tells that a commit has ended: the next one takes about so long.
    std::this_thread::sleep_for(std::chrono::microseconds(random.below(3000)));
    EXPECT_EQ(service.end(killed ? SIGKILL : SIGTERM), killed ? -SIGKILL : 0);
    for (auto& client : clients) client.join();

    ASSERT_TRUE(service.start()) << service.said();
    const auto found = readAll(place);
    for (auto& writer : writers) writer->compare(found, killed);
    EXPECT_EQ(service.end(SIGKILL), -SIGKILL);
  }
  EXPECT_EQ(service.said(), "");
}

}  // namespace
}  // namespace nv::testkit
