// The order of an ordered map: where objects are put, who is told of whom, and what is written.
#include "tests/support/map_fixture.h"

using namespace test;

namespace {

constexpr std::uint32_t kFront = 0;

using AOmapOrder = AOmapTest;

TEST_F(AOmapOrder, AddPlacesTheObjectWhereTheRequestSays) {
  const struct {
    std::uint32_t front, position;
    const char* order;
  } cases[] = {
      {0, kFront, "9 5 0 3"},  // the front even where an object has this id
      {0, kEnd, "5 0 3 9"},   {0, 3, "5 0 9 3"},   {0, 5, "9 5 0 3"},       {3, 3, "9 5 0 3"},
      {3, 0, "5 9 0 3"},      {77, 77, "9 5 0 3"}, {kEnd, kEnd, "9 5 0 3"},  // the front is asked
                                                                             // before the end
  };
  for (const auto& c : cases) {
    startAnew();
    start("items", 0, 100);
    map->front = 77;
    addAll({5, 0, 3});
    map->front = c.front;
    add({{key::objectId, 9}, {key::nextId, c.position}});
    EXPECT_EQ(order(), c.order) << c.front << ' ' << c.position;
  }
}

TEST_F(AOmapOrder, AddWritesItselfThenWhoNamesItBeforeItIsInTheMap) {
  Element::onGet = [&](Object& obj, message&, std::uint32_t) {
    kit->seen().log.push_back(map->objects.contains(obj.id) ? "known" : "unknown");
  };
  const auto& ops = kit->seen().storeOps;
  const std::string told = ", notify 3, undo item added, reply";
  add({{key::objectId, 3}, {key::nextId, kFront}});
  EXPECT_EQ(line(), "checkAdd 3>end, unknown, store 3, store 4294967294, objAdded 3" + told);
  EXPECT_EQ(ops[1].record, message({{key::objectId, kHead}, {key::nextId, 3}}));
  add({{key::objectId, 7}, {key::nextId, 3}});
  addAll({9});
  drop(3);
  add({{key::objectId, 3}, {key::nextId, 9}});
  EXPECT_EQ(line(), "checkAdd 3>9, unknown, store 3, known, store 7, objAdded 3" + told);
  EXPECT_EQ(ops[0].record, configured({}, {{key::objectId, 3}, {key::nextId, 9}}));
  EXPECT_EQ(ops[1].record, configured({}, {{key::objectId, 7}, {key::nextId, 3}}));
}

TEST_F(AOmapOrder, SetKeepsTheChainWhereTheObjectBecomesStorableOrCeasesToBe) {
  addAll({2});
  put(3, {.isVolatile = true});
  addAll({1, 4});
  ask(cmd::setObj, {{key::objectId, 1}, {field::isVolatile, true}});
  EXPECT_EQ(line(), "checkChange 1>4, unstore 1, store 2, objChanged 1, notify 1, reply");
  EXPECT_EQ(chain(), "head>2 2>4 4>end");
  ask(cmd::setObj, {{key::objectId, 1}, {field::isVolatile, false}});
  EXPECT_EQ(line(), "checkChange 1>4, store 1, store 2, objChanged 1, notify 1, reply");
  EXPECT_EQ(chain(), "head>2 2>1 1>4 4>end");
}

TEST_F(AOmapOrder, RemoveWritesWhoNamedTheObjectAndPublishesAnAddAtItsPlace) {
  addAll({2, 1});
  put(3, {.isVolatile = true});
  addAll({4});
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(line(),
            "checkRemove 1>3, unstore 1, store 2, objRemoved 1, notify 1, undo item removed, "
            "reply");
  EXPECT_EQ(kit->seen().undos[0].undo,
            configured({}, {{key::command, cmd::addObj}, {key::objectId, 1}, {key::nextId, 3}}));
  EXPECT_EQ(chain(), "head>2 2>4 4>end");
  at(4).config.isVolatile = true;  // without a word to the map: its record goes too
  ask(cmd::removeObj, {{key::objectId, 4}});
  EXPECT_EQ(line(), "checkRemove 4>end, unstore 4, objRemoved 4, notify 4, reply");
}

TEST_F(AOmapOrder, MovePlacesTheObjectWhereTheRequestSays) {
  const struct {
    std::uint32_t id, position;
    const char *check, *order, *stores;
  } cases[] = {
      {4, 2, "4>end to 2", "1 4 2 3", "store 4, store 1, store 3, "},
      {4, kFront, "4>end to 1", "4 1 2 3", "store 4, store 4294967294, store 3, "},
      {1, kEnd, "1>2 to end", "2 3 4 1", "store 1, store 4, store 4294967294, "},
      {1, 77, "1>2 to end", "2 3 4 1", "store 1, store 4, store 4294967294, "},
      {1, kHead, "1>2 to end", "2 3 4 1", "store 1, store 4, store 4294967294, "},
      {2, 3, "2>3 to 3", "1 2 3 4", "store 2, store 1, store 1, "},  // where it stands
      {4, kEnd, "4>end to end", "1 2 3 4", "store 4, store 3, store 3, "},
  };
  for (const auto& c : cases) {
    startAnew();
    addAll({1, 2, 3, 4});
    map->onCheckMove = [](OObject*, OObject*, OObject*) { return message{{field::number, 99}}; };
    EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, c.id}, {key::nextId, c.position}}),
              message({{field::number, 99}}));
    const std::string id = std::to_string(c.id);
    EXPECT_EQ(line(), std::string("checkMove ") + c.check + ", " + c.stores + "objMoved " + id +
                          ", notify " + id + ", undo item moved, reply");
    EXPECT_EQ(order(), c.order);
    EXPECT_EQ(kit->seen().undos[0].undo, message({{key::command, cmd::moveObj},
                                                  {key::objectId, c.id},
                                                  {key::nextId, c.id == 4 ? kEnd : c.id + 1}}));
    restart();
    EXPECT_EQ(order(), c.order);
  }
  ask(cmd::moveObj, {{key::objectId, 1}});  // without a position: the end
  EXPECT_TRUE(order().ends_with("1"));
}

TEST_F(AOmapOrder, MoveIsRefusedBeforeItselfAndByTheService) {
  addAll({1, 2});
  const message no = nv::errorMsg(0xfe0006, "can not move object before itself");
  for (const std::uint32_t position : {1u, kFront}) {
    EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, 1}, {key::nextId, position}}), no);
    EXPECT_EQ(line(), "reply");
  }
  map->onCheckMove = [&](OObject*, OObject*, OObject*) { return nv::failedMsg("no"); };
  EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, 1}}), nv::failedMsg("no"));
  EXPECT_EQ(line(), "checkMove 1>2 to end, reply");
  EXPECT_EQ(order(), "1 2");
  map->onCheckMove = {};
  map->dynamicIds.insert(2);  // which keeps users from other changes
  map->front = 2;
  EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, 2}, {key::nextId, 2}}, userWithRights(0)),
            message());  // the front
  EXPECT_EQ(order(), "2 1");
}

TEST_F(AOmapOrder, GetOneTellsWhoIsNextAndNoIdAndPagesTheOpposite) {
  addAll({7, 3});
  EXPECT_EQ(page({{key::startId, 3}}), "3");
  EXPECT_EQ(ask(cmd::getObj, {{key::objectId, 7}}), configured({}, {{key::nextId, 3}}));
  EXPECT_EQ(map->getObject(7, 5), configured({}, {{key::objectId, 7}, {key::nextId, 3}}));
  EXPECT_EQ(map->getObject(8, 5), message({{key::objectId, 8}, {key::absent, 1}}));
  EXPECT_EQ(message(ask(cmd::getAll).get(key::objects)[0]), configured({}, {{key::objectId, 7}}));
}

// Changes by the service.

TEST_F(AOmapOrder, RemovesTheRecordThenWritesTheChainThenFreesTheId) {
  addAll({1, 2});
  map->onFree = [&](std::uint32_t) { kit->seen().log.emplace_back("free"); };
  Element::onDelete = [&](Object&) { kit->seen().log.emplace_back("delete"); };
  kit->seen().clear();
  drop(2);
  EXPECT_EQ(line(), "unstore 2, store 1, free, notify 2, delete");
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(line(),
            "checkRemove 1>end, free, unstore 1, store 4294967294, objRemoved 1, delete, notify "
            "1, undo item removed, reply");
}

TEST_F(AOmapOrder, IsWalkedBothWays) {
  EXPECT_EQ(map->getPrevObj(nullptr), nullptr);
  EXPECT_EQ(map->findNextStorable(nullptr), &map->head);
  put(6, {.isVolatile = true});
  addAll({9, 3});
  EXPECT_EQ(map->getPrevObj(&at(6)), nullptr);
  EXPECT_EQ(map->getPrevObj(nullptr), &at(3));
  EXPECT_EQ(map->findPrevStorable(&at(9)), &map->head);
  EXPECT_EQ(map->findNextStorable(nullptr), &at(9));
  EXPECT_EQ(map->findPrevStorable(nullptr), &at(3));
  message m;
  map->addNextId(m, nullptr);
  EXPECT_EQ(m.get(key::nextId), 6u);
  map->addNextStorableId(m, &map->head);
  EXPECT_EQ(m.get(key::nextId), 9u);
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
