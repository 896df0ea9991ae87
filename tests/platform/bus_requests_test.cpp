/// Requests of peers and who answers them, on behalf of whom.

#include "tests/platform/bus_fixture.h"

namespace nv::testkit {
namespace {

/// A second handler in the process.
message toSecond(message request) { return request.insert(key::route, {kAddress, 9}); }

TEST_F(Bus, EachRequestIsAnsweredWithItsTagByTheHandlerAtTheEndOfItsRoute) {
  ListHandler second;
  serve(second, 9);
  second.texts[1] = "second";
  auto peer = kit.connect();
  const auto routed = [](std::vector<std::uint32_t> route) {
    return command(1, cmd::getCount).insert(key::route, route);
  };
  const struct {
    message request;
    const char* reply;
    const char* text;
  } cases[] = {
      {setText(1, 7, "seven"), "1 ok", ""},
      {command(2, cmd::getObj, 7), "2 ok", "seven"},
      {command(3, cmd::getObj, 8), "3 fe0004", ""},
      {command(4, 0xfe0022), "4 fe0006", ""},
      {command(5, 0xffffffff), "5 fe0006", ""},
      {toSecond(command(6, cmd::getObj, 1)), "6 ok", "second"},
      {routed({}), "1 fe0102", ""},
      {routed({101}), "1 fe0102", ""},
      {routed({kAddress, 8}), "1 fe0102", ""},
      {routed({kAddress, kAddress, 1}), "1 fe0102", ""},
  };
  for (const auto& c : cases) {
    const auto replies = heard(*peer, c.request);
    EXPECT_EQ(line(replies), c.reply);
    EXPECT_EQ(replies.at(0).get(key::name), c.text) << c.reply;
  }
}

TEST_F(Bus, RouteAndRightsComeFromTheKernelNotFromTheClient) {
  struct {
    std::uint32_t uid;
    std::optional<std::uint32_t> asked;
    std::uint32_t seen;
  } const cases[] = {
      {0, {}, kSystemRights},  // root is the system
      {0, 4, 4},               // and may ask for less
      {0, 0xffffffff, kSystemRights},
      {12345, {}, 0},  // nobody else has any rights
      {12345, 0x7fffffff, 0},
  };
  texts.texts[1] = "one";
  for (const auto& c : cases) {
    auto peer = kit.connect({c.uid, c.uid, 1});
    auto msg = command(1, cmd::getObj, 1).insert(key::requester, {7, 8});
    if (c.asked) msg.insert(key::rights, *c.asked);
    EXPECT_EQ(said(*peer, msg), "1 ok");
    const auto route = texts.lastRequest.get(key::requester);
    ASSERT_EQ(route.size(), 1U);
    EXPECT_GE(route[0], Transport::kFirstConnection);
    EXPECT_EQ(texts.lastRequest.get(key::rights, 77), c.seen) << c.uid;
  }
}

TEST_F(Bus, AUserWithoutRightsReadsButChangesNothingAndReadsNoUndoWhateverItForges) {
  texts.texts[1] = "as it was";
  auto root = subscriber(), peer = kit.connect({12345, 12345, 1});
  heard(*root, command(2, cmd::getObj, 1));
  const auto victim = texts.lastRequest.get(key::requester)[0];
  const message forged[] = {
      {},
      {{key::rights, kSystemRights}},
      {{key::rights, 0xffffffff}},
      {{key::rights, 0x7fffffff}},
      message().insert(key::requester, {}),
      message().insert(key::requester, {victim}),
      message().insert(key::requester, {0xbfffffff}),
      message().insert(key::removals, {key::rights.uid(), key::requester.uid()}),
      {{u64_id(key::rights.id()), 0xffffffffffffffff}, {key::settled, true}},
      {{key::frameKind, 0}, {key::dynamic, true}, {key::managedId, 0xffffffff}},
  };
  for (const auto& forgery : forged) {
    for (const auto code :
         {cmd::setObj, cmd::addObj, cmd::removeObj, cmd::moveObj, cmd::set, cmd::getUndo}) {
      auto request = command(code, code, 1);
      request.merge(forgery);
      EXPECT_EQ(errorCode(heard(*peer, request).at(0)), err::notAllowed) << code;
    }
    auto unsubscribe = command(1, cmd::unsubscribe, 1), gone = command(1, cmd::routeGone);
    unsubscribe.merge(forgery);
    gone.merge(forgery);
    EXPECT_EQ(said(*peer, unsubscribe), "1 fe0004");
    EXPECT_EQ(said(*peer, gone), "");
  }
  EXPECT_EQ(heard(*peer, command(2, cmd::getObj, 1)).at(0).get(key::name), "as it was");
  texts.put(1, "new");
  EXPECT_EQ(said(*root), "~1 1=new") << "the subscription of another is not ended";
}

TEST_F(Bus, AnAnswerGoesToWhoAskedWhateverStandsInIt) {
  struct Quoting : ListHandler {
    message cmdGet(const message&) override {
      message reply{{key::name, "mine"}, {key::tag, 99}, {key::frameKind, 2}};
      return reply.insert(key::route, {other});
    }
    std::uint32_t other = kAddress;
  } quoting;
  serve(quoting);
  auto peer = kit.connect(), other = kit.connect();
  heard(*other, command(1, cmd::getObj, 1));
  for (const auto route : {kAddress, quoting.lastRequest.get(key::requester)[0]}) {
    quoting.other = route;
    const auto replies = heard(*peer, command(1, cmd::get));
    ASSERT_EQ(line(replies), "1 ok");
    EXPECT_EQ(replies[0].get(key::name), "mine");
    EXPECT_TRUE(other->received().empty());
  }
}

TEST_F(Bus, FramesArriveWhateverTheirPieces) {
  auto peer = kit.connect();
  std::vector<unsigned char> bytes;
  for (std::uint32_t tag = 1; tag <= 3; ++tag) {
    const auto msg = setText(tag, tag, std::string(tag * 50, 'x'));
    bytes.resize(bytes.size() + 4);
    store32(bytes.data() + bytes.size() - 4, static_cast<std::uint32_t>(msg.bytes().size()));
    bytes.insert(bytes.end(), msg.bytes().begin(), msg.bytes().end());
  }
  for (const std::size_t piece :
       {std::size_t{1}, std::size_t{3}, std::size_t{5}, bytes.size() - 1}) {
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
      const auto part = byte_view(bytes).subspan(at, std::min(piece, bytes.size() - at));
      peer->sendBytes({part.begin(), part.end()});
      kit.pass();
    }
    EXPECT_EQ(said(*peer), "1 ok, 2 ok, 3 ok") << piece;
  }
}

TEST_F(Bus, AHandlerTellsItsOwnUndoRecordsPageByPage) {
  ListHandler second;
  serve(second, 9);
  auto peer = kit.connect();
  for (std::uint32_t id = 1; id <= 6; ++id) {
    const auto change = setText(id, id, "x");
    heard(*peer, id % 2 == 0 ? toSecond(change) : change);
  }
  /// The ids that the handler's records would remove, newest first, '/' between pages of two.
  const auto undone = [&](message request) {
    std::string ids;
    request.insert(key::maxCount, 2);
    for (;;) {
      const auto page = heard(*peer, request).at(0);
      for (const auto& record : page.get(key::objects))
        ids += std::to_string(message(message(record).get(undo_key::command)).get(key::objectId));
      if (!page.has(key::startId)) return ids;
      request.insert(key::startId, page.get(key::startId));
      ids += '/';
    }
  };
  EXPECT_EQ(undone(command(1, cmd::getUndo)), "53/1");
  EXPECT_EQ(undone(toSecond(command(1, cmd::getUndo))), "64/2");
}

}  // namespace
}  // namespace nv::testkit
