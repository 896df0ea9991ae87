/// Durable before told, and what becomes of those who wait when the store fails.

#include <gtest/gtest.h>

#include "platform/follow.h"
#include "platform/looper.h"
#include "platform/undo_log.h"
#include "tests/platform/bus_fixture.h"

namespace nv::testkit {
namespace {

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

TEST_F(Bus, WhenACommitFailsGetsAreStillAnsweredAndOnlyWhatWaitsForItIsLost) {
  ListHandler texts("texts");
  serve(texts);
  texts.texts[1] = "one";
  auto writer = kit.connect(), reader = kit.connect();
  kit.engine().hold();
  writer->send(setText(1, 7, "seven"));
  EXPECT_EQ(said(*writer), "");
  // Both come in the pass that hears of the failure.
  writer->send(setText(2, 8, "eight"));
  reader->send(command(1, cmd::getObj, 1));
  reader->send(command(2, cmd::getObj, 1).insert(key::settled, true));
  kit.engine().failCommit(1, "the disk is on fire");
  kit.engine().release();
  EXPECT_EQ(said(*reader), "1 ok, 2 fe0105");
  EXPECT_EQ(line(writer->received()), "1 fe0105, 2 fe0105");
  EXPECT_EQ(kit.exitStatus(), Looper::kNotStored);
  EXPECT_TRUE(stores.records("texts").empty());
}

TEST_F(Bus, WhenARecordCannotBeReadWhatReachesTheDiskIsStillAcknowledged) {
  stores.set("other", 1, {{key::name, "one"}});
  ListHandler texts("texts");
  serve(texts);
  Store other("other");
  auto writer = kit.connect();
  kit.engine().hold();
  writer->send(setText(1, 7, "seven"));
  kit.settle();
  writer->send(setText(2, 8, "eight"));
  kit.settle();
  kit.engine().failReads("the disk is gone");
  EXPECT_TRUE(other.get(1).empty());
  const auto replies = writer->received();
  ASSERT_EQ(line(replies), "1 ok, 2 fe0105");
  EXPECT_EQ(getError(replies[1]), "the store cannot be read: the disk is gone");
  EXPECT_EQ(kit.exitStatus(), Looper::kNotStored);
  EXPECT_EQ(stores.get("texts", 7).get(key::name), "seven");
  EXPECT_TRUE(stores.get("texts", 8).empty());
}

TEST_F(Bus, StoppingWaitsForTheCommitUnderWayAndForTheNext) {
  ListHandler texts("texts");
  serve(texts);
  auto writer = kit.connect();
  kit.engine().hold();
  writer->send(setText(1, 7, "seven"));
  kit.settle();
  writer->send(setText(2, 8, "eight"));
  EXPECT_EQ(said(*writer), "");
  getLooper()->stop(3);
  EXPECT_EQ(getLooper()->run(), 3);
  EXPECT_EQ(line(writer->received()), "1 ok, 2 ok");
  EXPECT_EQ(stores.records("texts").size(), 2U);
}

TEST_F(Bus, StoppingWhileACommitFailsEndsAsAnyFailure) {
  ListHandler texts("texts");
  serve(texts);
  auto writer = kit.connect();
  kit.engine().hold();
  kit.engine().failCommit(1, "the disk is on fire");
  writer->send(setText(1, 7, "seven"));
  kit.settle();
  getLooper()->stop();
  getLooper()->run();
  EXPECT_EQ(line(writer->received()), "1 fe0105");
  EXPECT_EQ(kit.exitStatus(), Looper::kNotStored);
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

/// Stores a text on a command of its own.
struct OwnCommand : ListHandler {
  using ListHandler::ListHandler;
  void handleCmd(const message& request, unsigned code) override {
    if (code != kStore) return ListHandler::handleCmd(request, code);
    put(1, request.get(key::name));
    sendUndo(request, {{key::command, cmd::removeObj}, {key::objectId, 1}}, "stored");
    replyMessage(request, {});
  }
  static constexpr unsigned kStore = 0x55;
};

TEST_F(Bus, WhoWaitsForADiskThatTakesNoChangesIsToldSoAndTheChangeIsWrittenLater) {
  OwnCommand texts("texts");
  serve(texts);
  auto peer = kit.connect();
  peer->send(command(1, cmd::subscribe));
  kit.settle();
  peer->received();
  const auto store = [](std::uint32_t tag) {
    return command(tag, OwnCommand::kStore).insert(key::name, "new");
  };
  kit.engine().hold();
  peer->send(store(2));
  kit.settle();
  kit.engine().refuse("no space left on device");
  peer->send(store(3));
  peer->send(command(4, cmd::getObj, 1).insert(key::settled, true));
  peer->send(command(5, cmd::getObj, 1));
  kit.settle();
  const auto replies = peer->received();
  EXPECT_EQ(line(replies), "3 fe0105, 4 fe0105, 5 ok") << "2 is being written";
  EXPECT_EQ(getError(replies[0]), "not on disk yet: no space left on device");
  kit.engine().release();
  EXPECT_EQ(said(*peer), "2 ok, ~1 1=new");
  kit.engine().refuse("");
  EXPECT_EQ(said(*peer), "~1 1=new");
  EXPECT_EQ(stores.get("texts", 1).get(key::name), "new");
  peer->send(command(6, cmd::getUndo));
  kit.settle();
  EXPECT_EQ(peer->received().at(0).size(key::objects), 2U);
}

TEST_F(Bus, WhatWaitsForADiskThatTakesNoChangesDoesNotGrow) {
  ListHandler texts("texts");
  serve(texts);
  std::vector<std::string> heard;
  auto target = command(0, 0);
  void* const followed =
      follow([&](const message& msg) { heard.push_back(msg.get(key::name)); }, target, false);
  kit.settle();
  kit.engine().refuse("no space left on device");
  constexpr int kChanges = 5000;
  const auto records = static_cast<int>(Limits().undoRecords);
  texts.fetches = 0;
  for (int i = 1; i <= kChanges; ++i) {
    texts.put(1, std::to_string(i) + std::string(1000, 'x'));
    texts.sendUndo({}, {{key::objectId, static_cast<std::uint32_t>(i)}}, "changed");
    kit.pass();
  }
  EXPECT_EQ(texts.stalled, 1);
  kit.engine().refuse("");
  kit.settle();
  EXPECT_EQ(texts.stalled, 0);
  EXPECT_LT(heard.size(), 100U);
  EXPECT_EQ(heard.back(), texts.texts[1]);
  stopFollow(followed);

  auto peer = kit.connect();
  peer->send(command(1, cmd::getUndo));
  kit.settle();
  const auto kept = peer->received().at(0).get(key::objects);
  ASSERT_FALSE(kept.empty());
  const auto newest = message(kept[0]);
  EXPECT_EQ(message(newest.get(undo_key::command)).get(key::objectId), 0U + kChanges);
  EXPECT_EQ(newest.get(undo_key::number), 0U + records) << "the others were dropped before";
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

}  // namespace
}  // namespace nv::testkit
