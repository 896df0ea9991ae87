/// Requests of peers and who answers them, on behalf of whom.

#include <gtest/gtest.h>

#include "platform/describe.h"
#include "platform/timer.h"
#include "platform/undo_log.h"
#include "tests/platform/bus_fixture.h"

namespace nv::testkit {
namespace {

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

TEST_F(Bus, AZeroTimerThatACommandMakesFiresInTheNextPass) {
  struct Deferring : ListHandler {
    message cmdGet(const message&) override {
      timer = Timer(0, [this] { ++fired; });
      return {};
    }
    Timer timer;
    int fired = 0;
  } handler;
  serve(handler);
  auto peer = kit.connect();
  kit.settle();
  peer->send(command(1, cmd::get));
  kit.pass();
  ASSERT_EQ(line(peer->received()), "1 ok");
  EXPECT_EQ(handler.fired, 0);
  kit.pass();
  EXPECT_EQ(handler.fired, 1);
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

TEST_F(Bus, AHandlerTellsItsOwnUndoRecordsPageByPage) {
  ListHandler first, second;
  serve(first);
  getLooper()->addHandler(9, &second);
  auto peer = kit.connect();
  const auto toSecond = [](message request) {
    request.insert_vector(key::route, kAddress, 9);
    return request;
  };
  for (std::uint32_t id = 1; id <= 6; ++id) {
    auto change = setText(id, id, "x");
    peer->send(id % 2 == 0 ? toSecond(change) : change);
  }
  kit.settle();
  peer->received();
  /// The ids that the handler's records would remove, newest first, '/' between pages of two.
  const auto undone = [&](const std::function<message(message)>& routed) {
    std::string ids;
    for (auto start = kNoId;;) {
      peer->send(
          routed(command(1, cmd::getUndo).insert(key::startId, start).insert(key::maxCount, 2)));
      kit.settle();
      const auto page = peer->received().at(0);
      for (const auto& record : page.get(key::objects))
        ids += std::to_string(message(message(record).get(undo_key::command)).get(key::objectId));
      if (!page.has(key::startId)) return ids;
      start = page.get(key::startId);
      ids += '/';
    }
  };
  EXPECT_EQ(undone([](message request) { return request; }), "53/1");
  EXPECT_EQ(undone(toSecond), "64/2");
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
