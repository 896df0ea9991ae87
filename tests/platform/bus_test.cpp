/// What a peer on the bus can and cannot do, through its own frames.

#include <gtest/gtest.h>

#include "platform/describe.h"
#include "platform/looper.h"
#include "platform/undo_log.h"
#include "testing/kit.h"
#include "tests/support/list_handler.h"

namespace nv::testkit {
namespace {

constexpr std::uint32_t kAddress = 100;

message command(std::uint32_t tag, unsigned code, std::uint32_t id = kNoId) {
  message msg{{key::command, code}, {key::tag, tag}};
  msg.insert_vector(key::route, kAddress);
  if (id != kNoId) msg.insert(key::objectId, id);
  return msg;
}

message setText(std::uint32_t tag, std::uint32_t id, const std::string& text) {
  auto msg = command(tag, cmd::setObj, id);
  msg.insert(key::name, text);
  return msg;
}

unsigned errorCode(const message& reply) {
  unsigned code = 0;
  isError(reply, &code, nullptr);
  return code;
}

/// "2 ok" for a success with tag 2, "2 fe0104" for an error, "~1 7=text" for a notification of
/// object 7 to subscription 1, "~1 7 gone" for one that says that it is gone.
std::string line(const std::vector<message>& messages) {
  std::ostringstream out;
  for (const auto& msg : messages) {
    if (out.tellp() > 0) out << ", ";
    if (msg.get(key::frameKind) == 2) {
      out << '~' << msg.get(key::tag) << ' ' << msg.get(key::objectId);
      msg.get(key::absent) ? out << " gone" : out << '=' << msg.get(key::name);
    } else {
      out << msg.get(key::tag) << ' ';
      isError(msg) ? out << std::hex << errorCode(msg) << std::dec : out << "ok";
    }
  }
  return out.str();
}

class Bus : public ::testing::Test {
 protected:
  Bus() { kit.listen(kAddress); }

  void serve(ListHandler& handler) { getLooper()->addHandler(kAddress, &handler); }

  std::string said(BusPeer& peer) {
    kit.settle();
    return line(peer.received());
  }

  MemoryStores stores;
  Kit kit{stores};
};

TEST_F(Bus, RequestsAreAnsweredWithTheirTag) {
  ListHandler texts;
  serve(texts);
  auto peer = kit.connect();
  peer->send(setText(1, 7, "seven"));
  peer->send(command(2, cmd::getObj, 7));
  peer->send(command(3, cmd::getObj, 8));
  peer->send(command(4, 0xfe0022));
  peer->send(command(5, 0xffffffff));
  kit.settle();
  const auto replies = peer->received();
  EXPECT_EQ(line(replies), "1 ok, 2 ok, 3 fe0004, 4 fe0006, 5 fe0006");
  EXPECT_EQ(replies[1].get(key::name), "seven");
}

TEST_F(Bus, ARouteToNobodyIsAnErrorReply) {
  ListHandler texts;
  serve(texts);
  auto peer = kit.connect();
  const std::vector<std::vector<std::uint32_t>> routes{
      {}, {101}, {kAddress, 9}, {kAddress, kAddress, 1}};
  for (const auto& route : routes) {
    auto msg = command(1, cmd::getCount);
    msg.insert(key::route, route);
    peer->send(msg);
    EXPECT_EQ(said(*peer), "1 fe0102");
  }
}

TEST_F(Bus, AHandlerBesideTheFirstIsReachedByItsNumber) {
  ListHandler first, second;
  serve(first);
  getLooper()->addHandler(9, &second);
  second.texts[1] = "second";
  auto peer = kit.connect();
  auto msg = command(1, cmd::getObj, 1);
  msg.insert_vector(key::route, kAddress, 9);
  peer->send(msg);
  EXPECT_EQ(said(*peer), "1 ok");
}

TEST_F(Bus, RouteAndRightsComeFromTheKernelNotFromTheClient) {
  struct {
    std::uint32_t uid;
    std::optional<std::uint32_t> asked;
    std::uint32_t seen;
  } const cases[] = {
      {0, {}, kSystemRights},          // root is the system
      {0, 4, 4},                       // and may ask for less
      {0, 0xffffffff, kSystemRights},  //
      {12345, {}, 0},                  // nobody else has any rights
      {12345, 0x7fffffff, 0},          //
      {12345, kSystemRights, 0},       //
      {12345, 0xffffffff, 0},          //
  };
  ListHandler texts;
  serve(texts);
  texts.texts[1] = "one";
  for (const auto& c : cases) {
    auto peer = kit.connect({c.uid, c.uid, 1});
    auto msg = command(1, cmd::getObj, 1);
    msg.insert_vector(key::requester, 7, 8);
    if (c.asked) msg.insert(key::rights, *c.asked);
    peer->send(msg);
    EXPECT_EQ(said(*peer), "1 ok");
    const auto route = texts.lastRequest.get(key::requester);
    ASSERT_EQ(route.size(), 1U);
    EXPECT_GE(route[0], Transport::kFirstConnection);
    EXPECT_EQ(texts.lastRequest.get(key::rights, 77), c.seen) << c.uid;
  }
}

TEST_F(Bus, AUserWithoutRightsReadsButChangesNothing) {
  ListHandler texts;
  serve(texts);
  texts.texts[1] = "one";
  auto peer = kit.connect({12345, 12345, 1});
  auto forged = setText(1, 1, "forged");
  forged.insert(key::rights, kSystemRights);
  peer->send(forged);
  for (const auto code : {cmd::addObj, cmd::removeObj, cmd::moveObj, cmd::set})
    peer->send(command(code, code, 1));
  peer->send(command(2, cmd::getObj, 1));
  kit.settle();
  const auto replies = peer->received();
  ASSERT_EQ(replies.size(), 6U);
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(errorCode(replies[static_cast<size_t>(i)]), err::notAllowed);
  EXPECT_EQ(replies[5].get(key::name), "one");
}

TEST_F(Bus, AnAnswerGoesToWhoAskedWhateverStandsInIt) {
  struct Quoting : ListHandler {
    message cmdGet(const message&) override {
      message reply{{key::name, "mine"}, {key::tag, 99}, {key::frameKind, 2}};
      reply.insert_vector(key::route, other);
      return reply;
    }
    std::uint32_t other = kAddress;
  } texts;
  serve(texts);
  auto peer = kit.connect(), other = kit.connect();
  other->send(command(1, cmd::getObj, 1));
  kit.settle();
  other->received();
  for (const auto route : {kAddress, texts.lastRequest.get(key::requester)[0]}) {
    texts.other = route;
    peer->send(command(1, cmd::get));
    kit.settle();
    const auto replies = peer->received();
    ASSERT_EQ(line(replies), "1 ok");
    EXPECT_EQ(replies[0].get(key::name), "mine");
    EXPECT_TRUE(other->received().empty());
  }
}

TEST_F(Bus, AServicesOwnChangesWaitForSpaceOnTheDisk) {
  ListHandler texts("texts");
  serve(texts);
  kit.engine().refuse("no space left on device");
  texts.put(1, "by the service");
  kit.settle();
  EXPECT_FALSE(kit.exitStatus());
  EXPECT_TRUE(stores.get("texts", 1).empty());
  auto peer = kit.connect();
  peer->send(command(1, cmd::getObj, 1));
  EXPECT_EQ(said(*peer), "1 ok");
  kit.engine().refuse("");
  kit.settle();
  EXPECT_EQ(stores.get("texts", 1).get(key::name), "by the service");
}

TEST_F(Bus, FramesArriveWhateverTheirPieces) {
  ListHandler texts;
  serve(texts);
  auto peer = kit.connect();
  std::vector<unsigned char> bytes;
  for (std::uint32_t tag = 1; tag <= 3; ++tag) {
    const auto msg = setText(tag, tag, std::string(tag * 50, 'x'));
    const auto flat = msg.bytes();
    const auto size = static_cast<std::uint32_t>(flat.size());
    for (unsigned shift = 0; shift < 32; shift += 8)
      bytes.push_back(static_cast<unsigned char>(size >> shift));
    bytes.insert(bytes.end(), flat.begin(), flat.end());
  }
  for (const std::size_t piece :
       {std::size_t{1}, std::size_t{3}, std::size_t{5}, bytes.size() - 1}) {
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
      const auto end = std::min(bytes.size(), at + piece);
      peer->sendBytes({bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(end)});
      kit.pass();
    }
    EXPECT_EQ(said(*peer), "1 ok, 2 ok, 3 ok") << piece;
  }
}

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

// --- durable before told

TEST_F(Bus, NothingIsToldBeforeItIsOnDiskAndReadsDoNotWait) {
  ListHandler texts("texts");
  serve(texts);
  auto writer = kit.connect();
  auto watcher = kit.connect();
  watcher->send(command(1, cmd::subscribe));
  EXPECT_EQ(said(*watcher), "1 ok");

  kit.engine().hold();
  writer->send(setText(1, 7, "seven"));
  writer->send(command(2, cmd::getObj, 7));
  EXPECT_EQ(said(*writer), "2 ok");
  EXPECT_EQ(said(*watcher), "");
  watcher->send(command(2, cmd::getUndo));
  kit.settle();
  EXPECT_TRUE(watcher->received()[0].get(key::objects).empty());

  kit.engine().release();
  EXPECT_EQ(said(*writer), "1 ok");
  EXPECT_EQ(said(*watcher), "~1 7=seven");
  watcher->send(command(3, cmd::getUndo));
  kit.settle();
  const auto records = watcher->received()[0].get(key::objects);
  ASSERT_EQ(records.size(), 1U);
  const message record(records[0]);
  EXPECT_EQ(record.get(undo_key::description), "text changed");
  EXPECT_EQ(message(record.get(undo_key::command)).get(key::command), cmd::removeObj);
  EXPECT_EQ(record.get(undo_key::route), (std::vector<std::uint32_t>{kAddress}));
  EXPECT_FALSE(message(record.get(undo_key::request)).has(key::requester));
}

TEST_F(Bus, ChangesMadeWhileTheDiskIsBusyShareTheNextCommit) {
  ListHandler texts("texts");
  serve(texts);
  std::vector<std::unique_ptr<BusPeer>> peers;
  for (int i = 0; i < 17; ++i) peers.push_back(kit.connect());
  kit.engine().hold();
  peers[0]->send(setText(1, 0, "first"));
  kit.settle();
  for (std::uint32_t i = 1; i < 17; ++i) peers[i]->send(setText(1, i, "next"));
  kit.settle();
  kit.engine().commit();
  kit.settle();
  EXPECT_EQ(line(peers[0]->received()), "1 ok");
  EXPECT_EQ(line(peers[1]->received()), "");
  kit.engine().commit();
  kit.settle();
  for (std::uint32_t i = 1; i < 17; ++i) EXPECT_EQ(line(peers[i]->received()), "1 ok");
  EXPECT_EQ(kit.engine().commits(), 2U);
}

TEST_F(Bus, AFailedCommitIsAnErrorToWhoWaitsAndTheEndOfTheProcess) {
  ListHandler texts("texts");
  serve(texts);
  auto writer = kit.connect();
  auto watcher = kit.connect();
  watcher->send(command(1, cmd::subscribe));
  kit.settle();
  watcher->received();
  kit.engine().failCommit(1, "the disk is on fire");
  writer->send(setText(1, 7, "seven"));
  kit.settle();
  const auto replies = writer->received();
  ASSERT_EQ(line(replies), "1 fe0105");
  EXPECT_EQ(getError(replies[0]), "the disk is on fire");
  EXPECT_EQ(said(*watcher), "");
  EXPECT_EQ(kit.exitStatus(), Looper::kNotStored);
  EXPECT_TRUE(stores.get("texts", 7).empty());
}

TEST_F(Bus, AFullDiskRefusesChangesAndServesReads) {
  ListHandler texts("texts");
  serve(texts);
  texts.texts[1] = "one";
  kit.engine().refuse("no space left on device");
  auto peer = kit.connect();
  peer->send(setText(1, 1, "new"));
  peer->send(command(2, cmd::getObj, 1));
  kit.settle();
  const auto replies = peer->received();
  EXPECT_EQ(line(replies), "1 fe0105, 2 ok");
  EXPECT_EQ(getError(replies[0]), "no space left on device");
  EXPECT_EQ(replies[1].get(key::name), "one");
  kit.engine().refuse("");
  peer->send(setText(3, 1, "new"));
  EXPECT_EQ(said(*peer), "3 ok");
}

// --- subscriptions

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

TEST_F(Bus, AHandlerDescribesItself) {
  ListHandler texts;
  serve(texts);
  texts.describe("texts", {{key::name.uid(), "text", "what it says"}});
  auto peer = kit.connect();
  peer->send(command(1, cmd::describe));
  kit.settle();
  const auto reply = peer->received()[0];
  EXPECT_EQ(reply.get(key::name), "texts");
  EXPECT_EQ(reply.get(describe_key::handlers), (std::vector<std::uint32_t>{kAddress}));
  const auto keys = reply.get(key::objects);
  ASSERT_EQ(keys.size(), 1U);
  EXPECT_EQ(message(keys[0]).get(describe_key::word), "text");
  EXPECT_EQ(message(keys[0]).get(describe_key::uid), 0x20fe0010U);
}

}  // namespace
}  // namespace nv::testkit
