/// Durable before told, and what becomes of those who wait when the store fails.

#include "tests/platform/bus_fixture.h"

namespace nv::testkit {
namespace {

TEST_F(Bus, NothingIsToldBeforeItIsOnDiskAndReadsDoNotWait) {
  auto writer = kit.connect(), watcher = subscriber();
  const auto records = [&] {
    return heard(*watcher, command(2, cmd::getUndo)).at(0).get(key::objects);
  };
  kit.engine().hold();
  writer->send(setText(1, 7, "seven"));
  EXPECT_EQ(said(*writer, command(2, cmd::getObj, 7)), "2 ok");
  EXPECT_EQ(said(*watcher), "");
  EXPECT_TRUE(records().empty());

  kit.engine().release();
  EXPECT_EQ(said(*writer), "1 ok");
  EXPECT_EQ(said(*watcher), "~1 7=seven");
  ASSERT_EQ(records().size(), 1U);
  const message record(records()[0]);
  EXPECT_EQ(record.get(undo_key::description), "text changed");
  EXPECT_EQ(message(record.get(undo_key::command)).get(key::command), cmd::removeObj);
  EXPECT_EQ(record.get(undo_key::route), (std::vector<std::uint32_t>{kAddress}));
  EXPECT_FALSE(message(record.get(undo_key::request)).has(key::requester));
}

TEST_F(Bus, ChangesMadeWhileTheDiskIsBusyShareTheNextCommit) {
  auto peer = kit.connect();
  kit.engine().hold();
  EXPECT_EQ(said(*peer, setText(1, 0, "first")), "");
  for (std::uint32_t tag = 2; tag <= 17; ++tag) EXPECT_EQ(said(*peer, setText(tag, tag, "x")), "");
  kit.engine().commit();
  EXPECT_EQ(said(*peer), "1 ok");
  kit.engine().commit();
  EXPECT_EQ(heard(*peer).size(), 16U);
  EXPECT_EQ(kit.engine().commits(), 2U);
}

TEST_F(Bus, WhenACommitFailsGetsAreStillAnsweredAndOnlyWhatWaitsForItIsLost) {
  texts.texts[1] = "one";
  auto writer = kit.connect(), reader = kit.connect(), watcher = subscriber();
  kit.engine().hold();
  EXPECT_EQ(said(*writer, setText(1, 7, "seven")), "");
  // Both come in the pass that hears of the failure.
  writer->send(setText(2, 8, "eight"));
  reader->send(command(1, cmd::getObj, 1));
  reader->send(command(2, cmd::getObj, 1).insert(key::settled, true));
  kit.engine().failCommit(1, "the disk is on fire");
  kit.engine().release();
  EXPECT_EQ(said(*reader), "1 ok, 2 fe0105");
  const auto replies = writer->received();
  ASSERT_EQ(line(replies), "1 fe0105, 2 fe0105");
  EXPECT_EQ(getError(replies[0]), "the disk is on fire");
  EXPECT_EQ(said(*watcher), "");
  EXPECT_EQ(kit.exitStatus(), Looper::kNotStored);
  EXPECT_TRUE(stores.records("texts").empty());
}

TEST_F(Bus, WhenARecordCannotBeReadWhatReachesTheDiskIsStillAcknowledged) {
  stores.set("other", 1, {{key::name, "one"}});
  Store other("other");
  auto writer = kit.connect();
  kit.engine().hold();
  EXPECT_EQ(said(*writer, setText(1, 7, "seven")), "");
  EXPECT_EQ(said(*writer, setText(2, 8, "eight")), "");
  kit.engine().failReads("the disk is gone");
  EXPECT_TRUE(other.get(1).empty());
  const auto replies = writer->received();
  ASSERT_EQ(line(replies), "1 ok, 2 fe0105");
  EXPECT_EQ(getError(replies[1]), "the store cannot be read: the disk is gone");
  EXPECT_EQ(kit.exitStatus(), Looper::kNotStored);
  EXPECT_EQ(stores.get("texts", 7).get(key::name), "seven");
  EXPECT_TRUE(stores.get("texts", 8).empty());
}

TEST_F(Bus, StoppingWaitsForTheCommitUnderWayAndForTheNextAndMayEndAsAnyFailure) {
  auto writer = kit.connect();
  for (const bool fails : {false, true}) {
    kit.engine().hold();
    EXPECT_EQ(said(*writer, setText(1, 7, "seven")), "");
    EXPECT_EQ(said(*writer, setText(2, 8, "eight")), "");
    if (fails) kit.engine().failCommit(2, "the disk is on fire");
    getLooper()->stop(3);
    EXPECT_EQ(getLooper()->run(), 3);
    EXPECT_EQ(line(writer->received()), fails ? "1 ok, 2 fe0105" : "1 ok, 2 ok");
    EXPECT_EQ(kit.exitStatus(), fails ? std::optional(Looper::kNotStored) : std::nullopt);
  }
}

/// Stores a text on a command of its own.
struct OwnCommand : ListHandler {
  using ListHandler::ListHandler;
  void handleCmd(const message& request, unsigned code) override {
    if (code != kStore) return ListHandler::handleCmd(request, code);
    replyMessage(request, cmdSetObj(request, 1));
  }
  static constexpr unsigned kStore = 0x55;
};

TEST_F(Bus, WhoWaitsForADiskThatTakesNoChangesIsToldSoAndTheChangeIsWrittenLater) {
  OwnCommand own("texts");
  serve(own);
  auto peer = subscriber();
  const auto store = [](std::uint32_t tag) {
    return command(tag, OwnCommand::kStore).insert(key::name, "new");
  };
  kit.engine().hold();
  EXPECT_EQ(said(*peer, store(2)), "");
  kit.engine().refuse("no space left on device");
  peer->send(store(3));
  peer->send(command(4, cmd::getObj, 1).insert(key::settled, true));
  const auto replies = heard(*peer, command(5, cmd::getObj, 1));
  EXPECT_EQ(line(replies), "3 fe0105, 4 fe0105, 5 ok") << "2 is being written";
  EXPECT_EQ(getError(replies[0]), "not on disk yet: no space left on device");
  kit.engine().release();
  EXPECT_EQ(said(*peer), "2 ok, ~1 1=new");
  kit.engine().refuse("");
  EXPECT_EQ(said(*peer), "~1 1=new");
  EXPECT_EQ(stores.get("texts", 1).get(key::name), "new");
  EXPECT_EQ(heard(*peer, command(6, cmd::getUndo)).at(0).size(key::objects), 2U);
}

TEST_F(Bus, WhatWaitsForADiskThatTakesNoChangesDoesNotGrow) {
  std::vector<std::string> names;
  follow([&](const message& msg) { names.push_back(msg.get(key::name)); }, command(0, 0), false);
  kit.settle();
  kit.engine().refuse("no space left on device");
  constexpr int kChanges = 5000;
  for (int i = 1; i <= kChanges; ++i) {
    texts.put(1, std::to_string(i) + std::string(1000, 'x'));
    texts.sendUndo({}, {{key::objectId, static_cast<std::uint32_t>(i)}}, "changed");
    kit.pass();
  }
  EXPECT_EQ(texts.stalled, 1);
  kit.engine().refuse("");
  kit.settle();
  EXPECT_EQ(texts.stalled, 0);
  EXPECT_LT(names.size(), 100U);
  EXPECT_EQ(names.back(), texts.texts[1]);

  auto peer = kit.connect();
  const auto kept = heard(*peer, command(1, cmd::getUndo)).at(0).get(key::objects);
  ASSERT_FALSE(kept.empty());
  const auto newest = message(kept[0]);
  EXPECT_EQ(message(newest.get(undo_key::command)).get(key::objectId), 0U + kChanges);
  EXPECT_EQ(newest.get(undo_key::number), Limits().undoRecords) << "others were dropped before";
}

}  // namespace
}  // namespace nv::testkit
