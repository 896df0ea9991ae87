// The order of an ordered map: where objects are put, who is told of whom, and what is written.
#include "tests/support/map_fixture.h"

using namespace test;

namespace {

using AOmapOrder = AOmapTest;

TEST_F(AOmapOrder, AddWritesItselfThenWhoNamesItBeforeItIsInTheMap) {
  addAll({7, 9});
  Element::onGet = [&](Object& obj, message&, std::uint32_t) {
    kit->seen().log.push_back(map->objects.contains(obj.id) ? "known" : "unknown");
  };
  add({{key::objectId, 3}, {key::nextId, 9}});
  EXPECT_EQ(line(),
            "checkAdd 3>9, unknown, store 3, known, store 7, objAdded 3, notify 3, undo item "
            "added, reply");
  EXPECT_EQ(kit->seen().storeOps[0].record, configured({}, {{key::objectId, 3}, {key::nextId, 9}}));
}

TEST_F(AOmapOrder, MoveWritesItselfThenWhoNamesItThenWhoDidAndPublishesAMoveBack) {
  addAll({1, 2, 3, 4});
  ask(cmd::moveObj, {{key::objectId, 2}, {key::nextId, 4}});
  EXPECT_EQ(line(),
            "checkMove 2>3 to 4, store 2, store 3, store 1, objMoved 2, notify 2, undo item moved, "
            "reply");
  EXPECT_EQ(kit->seen().undos[0].undo,
            message({{key::command, cmd::moveObj}, {key::objectId, 2}, {key::nextId, 3}}));
  EXPECT_EQ(chain(), "head>1 1>3 3>2 2>4 4>end");
  EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, 1}, {key::nextId, 0}}),  // the front
            nv::errorMsg(0xfe0006, "can not move object before itself"));
  EXPECT_EQ(line(), "reply");
}

TEST_F(AOmapOrder, IsWalkedBothWays) {
  EXPECT_EQ(map->getPrevObj(nullptr), nullptr);
  put(6, {.isVolatile = true});
  addAll({9, 3});
  EXPECT_EQ(map->getPrevObj(&at(6)), nullptr);
  EXPECT_EQ(map->getPrevObj(nullptr), &at(3));
  EXPECT_EQ(map->findNextStorable(nullptr), &at(9));
  EXPECT_EQ(map->findPrevStorable(nullptr), &at(3));
}

// Hooks that call back.

using AOmapHooks = AOmapTest;

TEST_F(AOmapHooks, MayTakeTheTargetAwayWhichLeavesTheEnd) {
  const struct {
    unsigned code;
    std::uint32_t id;
    const char* order;
  } cases[] = {{cmd::addObj, 9, "1 3 9"}, {cmd::moveObj, 1, "3 1"}};
  for (const auto& c : cases) {
    startAnew();
    addAll({1, 2, 3});
    map->onCheckAdd = [&](OObject*) { return drop(2), message(); };
    map->onCheckMove = [&](OObject*, OObject*, OObject*) { return drop(2), message(); };
    EXPECT_FALSE(nv::isError(ask(c.code, {{key::objectId, c.id}, {key::nextId, 2}})));
    EXPECT_EQ(order(), c.order);
    restart();
    EXPECT_EQ(order(), c.order);
  }
  // Or before the check, which is then told so.
  startAnew();
  addAll({1, 2});
  Element::onSet = [&](Object&, const message&, std::uint32_t) { drop(2); };
  ask(cmd::addObj, {{key::objectId, 9}, {key::nextId, 2}});
  EXPECT_TRUE(line().find("checkAdd 9>end") != std::string::npos) << line();
}

TEST_F(AOmapHooks, MayMoveTheTargetWhichIsFollowedAndTheNeighbours) {
  addAll({1, 2, 3});
  map->onCheckMove = [&](OObject*, OObject*, OObject* to) {
    return map->move(to, nullptr), message();
  };
  ask(cmd::moveObj, {{key::objectId, 3}, {key::nextId, 1}});
  EXPECT_EQ(chain(), "head>2 2>3 3>1 1>end");
  map->onCheckMove = {};
  map->onMoved = [&](OObject* obj) { map->move(map->getNextObj(obj), nullptr); };
  ask(cmd::moveObj, {{key::objectId, 1}, {key::nextId, 2}});
  EXPECT_EQ(chain(), "head>1 1>3 3>2 2>end");
}

TEST_F(AOmapHooks, MayEvenRemoveTheObjectThatIsMoved) {
  addAll({1, 2});
  map->onCheckMove = [&](OObject* obj, OObject*, OObject*) { return drop(obj->id), message(); };
  EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, 1}}), message());
  EXPECT_EQ(line(), "checkMove 1>2 to end, unstore 1, store 4294967294, notify 1, reply");
  map->onCheckMove = {};
  map->onMoved = [&](OObject* obj) { drop(obj->id); };
  EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, 2}}), message());
  EXPECT_EQ(Element::alive, 0);
}

TEST_F(AOmapHooks, MayRemoveTheStartOfAPageWhileItsDefaultsAreMade) {
  addAll({1, 2});
  Element::onGet = [&](Object& obj, message&, std::uint32_t) {
    if (obj.id == nv::kNoId) drop(1);
  };
  EXPECT_EQ(page({{key::startId, 1}, {key::getFlags, 0x20000005}}), "");
  EXPECT_EQ(order(), "2");
}

}  // namespace
