// Which id a new item gets, which ones it cannot get, and items that wait under a reserved one.
#include "tests/support/cfgman_fixture.h"

using namespace test;

namespace {

class CfgManIds : public CfgManTest {
 protected:
  /// The id that the reply names, 0xffffffff when it is refused as taken.
  std::uint32_t addAs(std::uint32_t id) {
    const auto answer = ask(cmd::addObj, {{key::objectId, id}});
    if (answer == nv::errorMsg(err::idInUse, "")) return kNoId;
    EXPECT_EQ(answer, message({{key::objectId, answer.get(key::objectId)}}));
    return answer.get(key::objectId);
  }
  void refuseAll() {
    cm->apply = [](auto*, auto*, auto&, auto&, message& answer) { answer = nv::failedMsg("no"); };
  }
};

TEST_F(CfgManIds, AreAllocatedFromTheRangeUntilNoneIsLeft) {
  cm->setAllocator(5, 7);
  for (const auto id : {5u, 6u, 7u, kNoId}) EXPECT_EQ(addAs(kNoId), id);
  EXPECT_EQ(line(), "reply");
  remove(6);
  EXPECT_EQ(addAs(kNoId), 6u);
  EXPECT_TRUE(cm->plant(false, nullptr) == cm->end());
  // Outside the range they can be given, and come back.
  for (int k = 0; k < 2; ++k) {
    EXPECT_EQ(addAs(70), 70u);
    EXPECT_EQ(ids(), "5 6 7 70");
    remove(70);
  }
}

TEST_F(CfgManIds, CanBeGivenUnlessTheyAreTakenOrReserved) {
  const struct {
    std::uint32_t asked, got;
  } rows[] = {{4, 4},     {0, 0}, {kHeadId, kNoId}, {0xfffffffd, 0xfffffffd},
              {kNoId, 1}, {2, 2}, {kNoId, 3},       {kNoId, 5},
              {50, kNoId} /* claimed by somebody */};
  cm->setAllocator(1, 0xfffffffd);
  cm->alloc->allocate(50);
  for (const auto& row : rows) EXPECT_EQ(addAs(row.asked), row.got) << row.asked;
  EXPECT_EQ(ids(), "0 1 2 3 4 5 4294967293");
  // An add under the id of an item changes that item.
  ask(cmd::addObj, {{key::objectId, 4}, {key::name, "four"}});
  EXPECT_EQ(line(), "undo four changed, store 4, reply");
}

TEST_F(CfgManIds, ExternalOnesAreNeitherTakenNorGivenBack) {
  cm->setAllocator(1, 200);
  cm->isExternalId = [](std::uint32_t id) { return id >= 100; };
  cm->alloc->allocate(150);
  EXPECT_EQ(addAs(150), 150u);
  EXPECT_EQ(addAs(120), 120u);
  EXPECT_FALSE(cm->alloc->isAllocated(120));
  remove(150);
  EXPECT_TRUE(cm->alloc->isAllocated(150));
  refuseAll();
  ask(cmd::addObj, {{key::objectId, 150}});
  EXPECT_EQ(ids(), "120");
  EXPECT_TRUE(cm->alloc->isAllocated(150));
}

TEST_F(CfgManIds, AReplacedAllocatorGivesNoIdTwice) {
  EXPECT_EQ(cm->alloc, nullptr);
  EXPECT_EQ(cm->allocMin, kNoId);
  EXPECT_EQ(cm->allocMax, 0u);
  set(1, {{key::name, "refused"}});  // even this one makes it
  ASSERT_NE(cm->alloc, nullptr);
  EXPECT_EQ(cm->alloc->min(), 1u);
  EXPECT_EQ(cm->alloc->max(), 0xfffffffdu);
  for (const auto id : {1u, 2u, 3u}) EXPECT_EQ(addAs(kNoId), id);
  cm->setAllocator(2, 5);
  EXPECT_EQ(cm->allocMin, 2u);
  EXPECT_EQ(cm->allocMax, 5u);
  EXPECT_EQ(addAs(kNoId), 4u);
  EXPECT_EQ(cm->plant(false, nullptr).item()->id, 5u);
  EXPECT_EQ(addAs(kNoId), kNoId);
}

// Planted items.

TEST_F(CfgManIds, APlantedItemIsAbsentUntilItIsFilledAndAfterItsRemoval) {
  const std::unique_ptr<CfgMan::Item> item(cm->plant(false, this).item());  // never the manager's
  EXPECT_EQ(ids(), "~1");
  EXPECT_EQ(ask(cmd::getObj, {{key::objectId, 1}}),
            message({{key::objectId, 1}, {key::absent, 1}, {key::stateFlag, true}}));

  refuseAll();
  EXPECT_TRUE(nv::isError(ask(cmd::addObj, {{key::objectId, 1}})));
  EXPECT_EQ(cm->find(1), item.get());
  cm->apply = nullptr;
  EXPECT_EQ(ask(cmd::addObj, {{key::objectId, 1}, {key::name, "p"}}),
            message({{key::objectId, 1}}));
  EXPECT_EQ(line(), "undo p changed, store 1, reply");
  const auto undo = kit->seen().undos[0];
  EXPECT_EQ(undo.request.get(key::command), cmd::addObj);
  EXPECT_EQ(undo.undo.get(key::command), cmd::removeObj);

  ask(message(undo.undo));
  EXPECT_EQ(line(), "undo  removed, unstore 1, reply");  // its name went, too
  EXPECT_EQ(ids(), "~1");
  EXPECT_EQ(cm->find(1), item.get());
  EXPECT_EQ(addAs(kNoId), 2u);
  stop();
}

TEST_F(CfgManIds, APlantedItemWithoutACookieGoesWithItsRemoval) {
  cm->plant(false, nullptr);
  addAs(1);
  remove(1);
  EXPECT_EQ(ids(), "");
  cm->plant(false, nullptr);
  refuseAll();
  ask(cmd::addObj, {{key::objectId, 1}});
  EXPECT_EQ(ids(), "");
  EXPECT_FALSE(cm->alloc->isAllocated(1));
}

TEST_F(CfgManIds, APlantedDynamicItemIsNeverStored) {
  const auto* const item = cm->plant(true, nullptr).item();
  EXPECT_EQ(item->config, message({{key::absent, 1}, {key::dynamic, true}}));
  addAs(1);
  EXPECT_EQ(line(), "reply");
  set(1, {{key::dynamic, false}, {key::name, "d"}});
  EXPECT_EQ(line(), "reply");
  EXPECT_EQ(stored(), "");
}

}  // namespace
