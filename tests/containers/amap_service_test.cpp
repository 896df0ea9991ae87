// What the service itself does to an object map, and hooks that call back into it.
#include <vector>

#include "tests/support/amap_fixture.h"

using namespace test;
namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::message;

namespace {

// Changes by the service.

using AMapService = AMapTest;

TEST_F(AMapService, AddsStoresAndAnnouncesWithoutChecksOrUndo) {
  EXPECT_EQ(map->add(makeItem(nv::kNoId), true).get()->id, 1u);
  EXPECT_EQ(map->add(makeItem(300), false).get()->id, 300u);  // no range is asked
  EXPECT_EQ(line(), "store 1, notify 1, notify 300");
  EXPECT_TRUE(map->ids.isAllocated(1));
  EXPECT_TRUE(verify(*map));
}

TEST_F(AMapService, ReportsChanges) {
  Object* const obj = map->add(makeItem(1), false).get();
  const struct {
    bool mayStore;
    ElementConfig config;
    const char* line;
  } cases[] = {
      {true, {}, "store 1, notify 1"},
      {false, {}, "notify 1"},
      {true, {.isVolatile = true}, "notify 1"},  // an earlier record stays
      {true, {.isSilent = true}, "store 1"},
  };
  for (const auto& c : cases) {
    item(obj).config = c.config;
    kit->seen().clear();
    map->changed(obj, c.mayStore);
    EXPECT_EQ(line(), c.line);
  }
}

TEST_F(AMapService, RemovesBeforeItAnnouncesAndDeletesLast) {
  map->add(makeItem(1), true);
  map->add(makeItem(2), true);
  kit->seen().clear();
  Element::onDelete = [&](Object&) { kit->seen().log.emplace_back("delete"); };
  auto second = map->find(2);
  map->remove(map->begin());
  EXPECT_EQ(line(), "unstore 1, notify 1, delete");
  EXPECT_EQ(second.get()->id, 2u);
  EXPECT_TRUE(map->begin() == second);
  EXPECT_TRUE(verify(*map));
  Element::onDelete = {};
}

TEST_F(AMapService, WalksItsObjectsAscending) {
  for (const std::uint32_t id : {9u, 3u, 6u}) map->add(makeItem(id), false);
  std::vector<std::uint32_t> seen;
  for (const Object* obj : *map) seen.push_back(obj->id);
  EXPECT_EQ(seen, (std::vector<std::uint32_t>{3, 6, 9}));
  EXPECT_TRUE(map->find(4) == map->end());
}

TEST_F(AMapService, LosesAnObjectForWhichNoIdIsFree) {
  start("items", 1, 1);
  map->add(makeItem(nv::kNoId), true);
  kit->seen().clear();
  EXPECT_TRUE(map->add(makeItem(nv::kNoId), true) == map->end());
  EXPECT_EQ(line(), "");
  EXPECT_EQ(Element::alive, 1);
}

// Hooks that call back.

using AMapHooks = AMapTest;

TEST_F(AMapHooks, MayAddAndRemoveOtherObjects) {
  add({{key::objectId, 50}});
  map->onCheckAdd = [&](Object*) {
    map->add(makeItem(nv::kNoId, "beside"), true);
    return message();
  };
  map->onAdded = [&](Object*) { map->remove(map->find(50)); };
  EXPECT_EQ(add({{key::objectId, 10}}), 10u);
  EXPECT_EQ(
      line(),
      "checkAdd 10, store 1, notify 1, store 10, objAdded 10, unstore 50, notify 50, notify 10, "
      "undo item added, reply");
  EXPECT_EQ(ids(), "1 10");
}

TEST_F(AMapHooks, MayEvenRemoveTheObjectThatTheyAreCalledFor) {
  const auto drop = [&](Object* obj) { map->remove(map->find(obj->id)); };
  map->onAdded = drop;
  EXPECT_EQ(ask(cmd::addObj), message({{key::objectId, 1}}));
  EXPECT_EQ(line(), "checkAdd 1, store 1, objAdded 1, unstore 1, notify 1, reply");
  map->onAdded = {};

  add();
  map->onCheckChange = [&](Object*, Object* obj) { return drop(obj), nv::failedMsg("gone"); };
  EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}}), nv::failedMsg("gone"));
  EXPECT_EQ(line(), "checkChange 1, unstore 1, notify 1, reply");
  map->onCheckChange = {};

  add();
  map->onChanged = [&](Object*, Object* obj) { drop(obj); };
  EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}}), message());
  EXPECT_EQ(line(), "checkChange 1, store 1, objChanged 1, unstore 1, notify 1, reply");

  add();
  map->onCheckRemove = [&](Object* obj) { return drop(obj), message(); };
  EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 1}}), message());
  EXPECT_EQ(line(), "checkRemove 1, unstore 1, notify 1, reply");
  EXPECT_EQ(Element::alive, 0);
}

TEST_F(AMapHooks, MayGiveTheIdOfARemovedObjectToANewOne) {
  add({{field::text, "old"}});
  map->onRemoved = [&](Object* obj) { map->add(makeItem(obj->id, "new"), true); };
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(
      line(),
      "checkRemove 1, unstore 1, objRemoved 1, store 1, notify 1, notify 1, undo old removed, "
      "reply");
  EXPECT_EQ(at(1).config.text, "new");
}

TEST_F(AMapHooks, MaySendCommandsToTheirOwnMap) {
  add({{key::objectId, 2}, {field::number, 1}});
  map->onChanged = [&](Object*, Object* obj) {
    if (obj->id != 1) return;
    map->cmdSetObj(message{{field::number, 7}}, 2);
    map->cmdRemoveObj({}, 2);
  };
  add({{key::objectId, 1}});
  EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}}), message());
  EXPECT_EQ(ids(), "1");
}

TEST_F(AMapHooks, WhichGiveOutAnIdTwiceAreRefusedAndNothingIsLost) {
  add({{key::objectId, 5}, {field::text, "first"}});
  map->onAllocate = [](std::uint32_t) { return 5u; };
  EXPECT_EQ(ask(cmd::addObj, {{key::objectId, 6}}), refused(err::idInUse));
  EXPECT_EQ(at(5).config.text, "first");
  EXPECT_EQ(Element::alive, 1);
}

}  // namespace
