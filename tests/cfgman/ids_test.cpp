// Which id a new item gets, which ones it cannot get, and items that wait under a reserved one.
#include "tests/support/cfgman_fixture.h"

using namespace test;
namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::message;

namespace {

class CfgManIds : public CfgManTest {
 protected:
  /// The id that the reply names, 0xffffffff when it is refused as taken.
  std::uint32_t addAs(std::uint32_t id) {
    const auto answer = ask(cmd::addObj, {{key::objectId, id}});
    if (answer == nv::errorMsg(err::idInUse, "")) return nv::kNoId;
    EXPECT_EQ(answer, message({{key::objectId, answer.get(key::objectId)}}));
    return answer.get(key::objectId);
  }
};

constexpr auto kNone = nv::kNoId;

TEST_F(CfgManIds, AreAllocatedFromTheRangeUntilNoneIsLeft) {
  cm->setAllocator(5, 7);
  for (const auto id : {5u, 6u, 7u, kNone, kNone}) EXPECT_EQ(addAs(kNone), id);
  EXPECT_EQ(line(), "reply");
  ask(cmd::removeObj, {{key::objectId, 6}});
  EXPECT_EQ(addAs(kNone), 6u);
  EXPECT_EQ(ids(), "5 6 7");
  EXPECT_TRUE(cm->plant(false, nullptr) == cm->end());
}

TEST_F(CfgManIds, CanBeGivenUnlessTheyAreTakenOrReserved) {
  const struct {
    std::uint32_t asked, got;
  } rows[] = {{4, 4},     {0, 0}, {nv::kHeadId, kNone}, {0xfffffffd, 0xfffffffd},
              {kNone, 1}, {2, 2}, {kNone, 3},           {kNone, 5},
              {50, kNone} /* claimed by somebody */};
  cm->setAllocator(1, 0xfffffffd);
  cm->alloc->allocate(50);
  for (const auto& row : rows) EXPECT_EQ(addAs(row.asked), row.got) << row.asked;
  EXPECT_EQ(ids(), "0 1 2 3 4 5 4294967293");
  // An add under the id of an item changes that item.
  ask(cmd::addObj, {{key::objectId, 4}, {key::name, "four"}});
  EXPECT_EQ(line(), "undo four changed, store 4, reply");
}

TEST_F(CfgManIds, OutsideTheRangeCanBeGivenAndComeBack) {
  cm->setAllocator(1, 2);
  EXPECT_EQ(addAs(70), 70u);
  ask(cmd::removeObj, {{key::objectId, 70}});
  EXPECT_EQ(addAs(70), 70u);
  EXPECT_EQ(cm->alloc->unused(), 2u);
}

TEST_F(CfgManIds, ExternalOnesAreNeitherTakenNorGivenBack) {
  cm->setAllocator(1, 200);
  cm->isExternalId = [](std::uint32_t id) { return id >= 100; };
  cm->alloc->allocate(150);
  EXPECT_EQ(addAs(150), 150u);
  EXPECT_EQ(addAs(120), 120u);
  EXPECT_FALSE(cm->alloc->isAllocated(120));
  ask(cmd::removeObj, {{key::objectId, 150}});
  EXPECT_EQ(ids(), "120");
  EXPECT_TRUE(cm->alloc->isAllocated(150));

  cm->apply = [](auto*, auto*, auto&, auto&, message& answer) { answer = nv::failedMsg("no"); };
  ask(cmd::addObj, {{key::objectId, 150}});
  EXPECT_EQ(ids(), "120");
  EXPECT_TRUE(cm->alloc->isAllocated(150));
}

TEST_F(CfgManIds, AReplacedAllocatorGivesNoIdTwice) {
  for (const auto id : {1u, 2u, 3u}) EXPECT_EQ(addAs(kNone), id);
  cm->setAllocator(2, 5);
  EXPECT_EQ(cm->alloc->used(), 0u);
  EXPECT_EQ(cm->allocMin, 2u);
  EXPECT_EQ(cm->allocMax, 5u);
  EXPECT_EQ(addAs(kNone), 4u);
  EXPECT_EQ(cm->plant(false, nullptr).item()->id, 5u);
  EXPECT_EQ(addAs(kNone), kNone);
}

TEST_F(CfgManIds, TheAllocatorComesWithTheFirstUpdateEvenARefusedOne) {
  EXPECT_EQ(cm->alloc, nullptr);
  EXPECT_EQ(cm->allocMin, nv::kNoId);
  EXPECT_EQ(cm->allocMax, 0u);
  ask(cmd::setObj, {{key::objectId, 1}});
  ASSERT_NE(cm->alloc, nullptr);
  EXPECT_EQ(cm->alloc->min(), 1u);
  EXPECT_EQ(cm->alloc->max(), 0xfffffffdu);
}

// Planted items.

TEST_F(CfgManIds, APlantedItemIsAbsentUntilItIsFilledAndAfterItsRemoval) {
  int cookie = 0;
  auto* const item = cm->plant(false, &cookie).item();
  EXPECT_EQ(item->config, message({{key::absent, 1}}));
  EXPECT_EQ(item->state, message({{key::stateFlag, true}}));
  EXPECT_EQ(ids(), "~1");
  EXPECT_EQ(ask(cmd::getObj, {{key::objectId, 1}}),
            message({{key::objectId, 1}, {key::absent, 1}, {key::stateFlag, true}}));

  EXPECT_EQ(ask(cmd::addObj, {{key::objectId, 1}, {key::name, "p"}}),
            message({{key::objectId, 1}}));
  EXPECT_EQ(line(), "undo p changed, store 1, reply");
  EXPECT_EQ(kit->seen().undos[0].request.get(key::command), cmd::addObj);
  EXPECT_EQ(kit->seen().undos[0].undo.get(key::command), cmd::removeObj);
  EXPECT_EQ(cm->find(1), item);

  ask(message(kit->seen().undos[0].undo));
  EXPECT_EQ(line(), "undo  removed, unstore 1, reply");  // its name went, too
  EXPECT_EQ(ids(), "~1");
  EXPECT_EQ(cm->find(1), item);
  EXPECT_EQ(item->config.get(key::absent), 1u);
  EXPECT_EQ(addAs(kNone), 2u);
  cm.reset();
  delete item;  // it was never the manager's
}

TEST_F(CfgManIds, APlantedItemWithoutACookieGoesWithItsRemoval) {
  cm->plant(false, nullptr);
  addAs(1);
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(ids(), "");
  EXPECT_EQ(addAs(kNone), 1u);

  cm->plant(false, nullptr);
  cm->apply = [](auto*, auto*, auto&, auto&, message& answer) { answer = nv::failedMsg("no"); };
  ask(cmd::addObj, {{key::objectId, 2}});
  EXPECT_EQ(ids(), "1");
  EXPECT_FALSE(cm->alloc->isAllocated(2));
}

TEST_F(CfgManIds, APlantedDynamicItemIsNeverStored) {
  const auto* const item = cm->plant(true, nullptr).item();
  EXPECT_EQ(item->config, message({{key::absent, 1}, {key::dynamic, true}}));
  addAs(1);
  EXPECT_EQ(line(), "reply");
  ask(cmd::setObj, {{key::objectId, 1}, {key::dynamic, false}, {key::name, "d"}});
  EXPECT_EQ(line(), "reply");
  EXPECT_EQ(stored(), "");
}

}  // namespace
