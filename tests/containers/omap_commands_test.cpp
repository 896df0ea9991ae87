// The commands of an ordered map: their replies, and what they do in which order.
#include <vector>

#include "tests/support/omap_fixture.h"

using namespace test;
namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::message;

namespace {

constexpr std::uint32_t kFront = 0, kEnd = nv::kNoId;

using AOmapCommands = AOmapTest;

// Add.

TEST_F(AOmapCommands, AddStoresItselfThenWhoNamesItThenTells) {
  addAll({3, 9});
  EXPECT_EQ(ask(cmd::addObj, {{key::objectId, 7}, {key::nextId, 9}, {field::text, "lamp"}}),
            message({{key::objectId, 7}}));
  EXPECT_EQ(line(), "checkAdd 7>9, store 7, store 3, objAdded 7, notify 7, undo lamp added, reply");
  const auto& seen = kit->seen();
  EXPECT_EQ(seen.storeOps[0].record,
            configured({.text = "lamp"}, {{key::objectId, 7}, {key::nextId, 9}}));
  EXPECT_EQ(seen.storeOps[1].record, configured({}, {{key::objectId, 3}, {key::nextId, 7}}));
  EXPECT_EQ(seen.undos[0].undo, message({{key::command, cmd::removeObj}, {key::objectId, 7}}));
  EXPECT_EQ(seen.undos[0].request.get(field::text), "lamp");
  EXPECT_EQ(seen.notifies[0].handler, map.get());
  EXPECT_FALSE(seen.notifies[0].removed);
  EXPECT_EQ(seen.notifies[0].cookie, nullptr);
  EXPECT_TRUE(seen.notifies[0].extra.empty());
}

TEST_F(AOmapCommands, TheFirstAddWritesTheHead) {
  add({{key::objectId, 7}});
  EXPECT_EQ(line(),
            "checkAdd 7>end, store 7, store 4294967294, objAdded 7, notify 7, undo item added, "
            "reply");
  EXPECT_EQ(kit->seen().storeOps[0].record->get(key::nextId), kEnd);
  EXPECT_EQ(kit->seen().storeOps[1].record,
            message({{key::objectId, 0xfffffffe}, {key::nextId, 7}}));
}

TEST_F(AOmapCommands, AddPlacesTheObjectWhereTheRequestSays) {
  struct Case {
    std::uint32_t front, position;
    const char* order;
  };
  const Case cases[] = {
      {0, kFront, "9 5 0 3"},  // the front even where an object has this id
      {0, kEnd, "5 0 3 9"},   {0, 3, "5 0 9 3"},   {0, 5, "9 5 0 3"},       {3, 3, "9 5 0 3"},
      {3, 0, "5 9 0 3"},      {77, 77, "9 5 0 3"}, {kEnd, kEnd, "9 5 0 3"},  // the front is asked
                                                                             // before the end
  };
  for (const Case& c : cases) {
    startAnew();
    start("items", 0, 100);
    map->front = 77;
    addAll({5, 0, 3});
    map->front = c.front;
    add({{key::objectId, 9}, {key::nextId, c.position}});
    EXPECT_EQ(order(), c.order) << c.front << ' ' << c.position;
  }
  start();
  add({{key::objectId, 5}, {key::nextId, kFront}});  // into nothing
  add({{key::objectId, 6}});
  EXPECT_EQ(order(), "5 6");
}

TEST_F(AOmapCommands, AddIsRefusedBeforeAnythingIsMade) {
  addAll({5});
  map->ids.allocate(6);  // given out by the service for something else
  map->add(makeOItem(200), nullptr);
  map->ids.free(5);  // as a service may do that hands out its own ids
  const int made = Element::made;
  const message inUse = refused(err::idInUse), outside = refused(err::noSuchObject),
                nowhere = refused(err::noSuchPosition);
  const struct {
    message request, reply;
  } cases[] = {
      {{{key::objectId, 0}}, outside},
      {{{key::objectId, 101}}, outside},
      {{{key::objectId, 200}}, outside},  // the range is asked before the objects
      {{{key::objectId, 0xfffffffe}}, outside},
      {{{key::objectId, 6}}, inUse},
      {{{key::objectId, 5}}, inUse},
      {{{key::nextId, 8}}, nowhere},
      {{{key::nextId, 8}, {key::objectId, 101}}, nowhere},  // asked before the id
      {{{key::nextId, 0xfffffffe}}, nowhere},
  };
  for (const auto& c : cases) {
    kit->seen().clear();
    message request = c.request;
    request.insert(key::command, cmd::addObj);
    EXPECT_EQ(kit->ask(*map, request), c.reply) << testing::PrintToString(c.request);
    EXPECT_EQ(line(), "reply");
  }
  EXPECT_EQ(Element::made, made);
  EXPECT_EQ(order(), "5 200");
  map->ids.allocate(5);
  map->ids.free(6);
}

TEST_F(AOmapCommands, AddWithoutIdGetsTheLowestFreeOneUntilNoneIsLeft) {
  start("items", 3, 5);
  addAll({4});
  EXPECT_EQ(add(), 3u);
  EXPECT_EQ(add({{key::objectId, nv::kNoId}, {key::managedId, 9}}), 5u);  // nobody manages it
  const int made = Element::made;
  EXPECT_EQ(ask(cmd::addObj), refused(err::idInUse));
  EXPECT_EQ(line(), "reply");
  EXPECT_EQ(Element::made, made);
  EXPECT_EQ(order(), "4 3 5");
}

TEST_F(AOmapCommands, AddRefusedByTheServiceLeavesNoTrace) {
  const message no{{key::errorCode, 0x77}, {key::errorText, "no"}, {field::number, 3}};
  map->onCheckAdd = [&](OObject* obj, OObject*) {
    EXPECT_EQ(item(obj).config.text, "lamp");
    EXPECT_TRUE(map->ids.isAllocated(1));
    EXPECT_EQ(order(), "");
    return no;
  };
  EXPECT_EQ(ask(cmd::addObj, {{field::text, "lamp"}, {key::dynamic, true}}), no);
  EXPECT_EQ(line(), "checkAdd 1>end, reply");
  EXPECT_EQ(Element::alive, 0);
  EXPECT_FALSE(map->ids.isAllocated(1));
}

TEST_F(AOmapCommands, AddGivesTheIdThatTheServiceAllocatesOnceTheRequestIsApplied) {
  for (const bool merges : {false, true}) {
    start();
    map->merges = merges;
    map->onAllocate = [&](std::uint32_t id) { return map->ids.allocate(id + 10); };
    map->onCheckAdd = [](OObject*, OObject*) {
      return message{{field::number, 8}, {key::objectId, 55}};
    };
    std::vector<std::uint32_t> ids;
    Element::onSet = [&](Object& obj, const message&, std::uint32_t) { ids.push_back(obj.id); };
    EXPECT_EQ(ask(cmd::addObj, {{key::objectId, 7}}),
              message({{field::number, 8}, {key::objectId, 17}}));
    EXPECT_EQ(ids, std::vector<std::uint32_t>{nv::kNoId});
    EXPECT_EQ(at(17).id, 17u);
  }
}

TEST_F(AOmapCommands, AddWritesBeforeTheObjectIsInTheMap) {
  Element::onGet = [&](Object& obj, message&, std::uint32_t) {
    kit->seen().log.push_back(map->objects.contains(obj.id) ? "known" : "unknown");
  };
  map->onAdded = [&](OObject* obj) { EXPECT_TRUE(map->objects.contains(obj->id)); };
  add();
  EXPECT_EQ(line(),
            "checkAdd 1>end, unknown, store 1, store 4294967294, objAdded 1, notify 1, undo item "
            "added, reply");
}

TEST_F(AOmapCommands, EachCommandTellsOnlyWhatTheElementWantsTold) {
  struct Case {
    Fields config;
    const char *added, *changed, *moved, *removed;
  };
  const Case cases[] = {
      {{{field::isVolatile, true}},
       "objAdded 1, notify 1",
       "objChanged 1, notify 1",
       "objMoved 1, notify 1",
       "objRemoved 1, notify 1"},
      {{{field::isSilent, true}},
       "store 1, store 2, objAdded 1, undo item added",
       "store 1, objChanged 1, undo item changed",
       "store 1, store 4294967294, store 2, objMoved 1, undo item moved",
       "unstore 1, store 4294967294, objRemoved 1, undo item removed"},
      {{{field::isFinal, true}},
       "store 1, store 2, objAdded 1, notify 1",
       "store 1, objChanged 1, notify 1",
       "store 1, store 4294967294, store 2, objMoved 1, notify 1",
       "unstore 1, store 4294967294, objRemoved 1, notify 1"},
  };
  for (const Case& c : cases) {
    start();
    addAll({2});
    message request = command(cmd::addObj, c.config);
    ask(request);
    EXPECT_EQ(line(), std::string("checkAdd 1>end, ") + c.added + ", reply");
    ask(cmd::setObj, {{key::objectId, 1}, {field::number, 1}});
    EXPECT_EQ(line(), std::string("checkChange 1>end, ") + c.changed + ", reply");
    ask(cmd::moveObj, {{key::objectId, 1}, {key::nextId, 2}});
    EXPECT_EQ(line(), std::string("checkMove 1>end to 2, ") + c.moved + ", reply");
    // What the element is after the removal was accepted counts no more.
    map->onRemoved = [](OObject* obj) { item(obj).config = {}; };
    ask(cmd::removeObj, {{key::objectId, 1}});
    EXPECT_EQ(line(), std::string("checkRemove 1>2, ") + c.removed + ", reply");
  }
}

// Dynamic objects.

TEST_F(AOmapCommands, OnlyTheSystemMakesAndChangesDynamicObjects) {
  constexpr std::uint32_t absent = 1;
  for (const std::uint32_t rights : {absent, 0x80000000u, 0xffffffffu, 0u, 0x7fffffffu}) {
    const auto who = rights == absent ? nv::testkit::Requester{} : userWithRights(rights);
    const bool isSystem = rights == absent || rights >= 0x80000000;
    const auto id = ask(cmd::addObj, {{key::dynamic, true}}, who).get(key::objectId);
    EXPECT_EQ(map->dynamicIds.contains(id), isSystem) << rights;

    map->dynamicIds.insert(id);
    EXPECT_EQ(ask(cmd::setObj, {{key::objectId, id}}, who),
              isSystem ? message() : nv::failedMsg("can't edit dynamic object"));
    EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, id}, {key::nextId, kEnd}}, who), message());
    EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, id}}, who),
              isSystem ? message() : nv::failedMsg("can't remove dynamic object"));
    EXPECT_EQ(map->dynamicIds.contains(id), !isSystem);
    if (isSystem) continue;
    EXPECT_EQ(line(), "reply");
    map->remove(map->find(id));
    EXPECT_TRUE(map->dynamicIds.empty());
  }
  EXPECT_EQ(ask(cmd::addObj, {{key::dynamic, false}}).get(key::objectId), 1u);
  EXPECT_TRUE(map->dynamicIds.empty());
}

// Set.

TEST_F(AOmapCommands, SetStoresThenTellsServiceThenSubscribersThenPublishesTheEarlierValues) {
  for (const bool merges : {false, true}) {
    start();
    map->merges = merges;
    add({{field::text, "lamp"}, {field::number, 4}});
    addAll({8});
    map->onCheckChange = [&](OObject* old, OObject* obj) {
      EXPECT_EQ(item(old).config, (ElementConfig{.text = "lamp", .number = 4}));
      EXPECT_EQ(item(obj).config, (ElementConfig{.text = "torch", .number = 4}));
      return message{{field::number, 99}};
    };
    EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}, {field::number, 4}, {field::text, "torch"}}),
              message({{field::number, 99}}));
    EXPECT_EQ(line(),
              "checkChange 1>8, store 1, objChanged 1, notify 1, undo torch changed, reply");
    EXPECT_EQ(kit->seen().undos[0].undo,
              message({{key::command, cmd::setObj}, {key::objectId, 1}, {field::text, "lamp"}}));
    EXPECT_EQ(Element::alive, 2);

    map->onCheckChange = [](OObject*, OObject*) { return nv::errorMsg(0, ""); };
    EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}, {field::isVolatile, true}}),
              nv::errorMsg(0, ""));
    EXPECT_EQ(line(), "checkChange 1>8, reply");
    EXPECT_EQ(at(1).config, (ElementConfig{.text = "torch", .number = 4}));
    EXPECT_EQ(Element::alive, 2);
  }
}

TEST_F(AOmapCommands, SetKeepsTheChainWhereTheObjectBecomesStorableOrCeasesToBe) {
  struct Case {
    bool before, after;
    const char *line, *chain;
  };
  const Case cases[] = {
      {false, false, "store 1, objChanged 1, notify 1, undo item changed", "head>2 2>1 1>4 4>end"},
      {false, true, "unstore 1, store 2, objChanged 1, notify 1", "head>2 2>4 4>end"},
      {true, false, "store 1, store 2, objChanged 1, notify 1", "head>2 2>1 1>4 4>end"},
      {true, true, "objChanged 1, notify 1", "head>2 2>4 4>end"},
  };
  for (const Case& c : cases) {
    startAnew();
    addAll({2});
    add({{key::objectId, 3}, {field::isVolatile, true}});
    add({{key::objectId, 1}, {field::isVolatile, c.before}});
    addAll({4});
    ask(cmd::setObj, {{key::objectId, 1}, {field::isVolatile, c.after}});
    EXPECT_EQ(line(), std::string("checkChange 1>4, ") + c.line + ", reply");
    EXPECT_EQ(chain(), c.chain);
    map->setAutoStore(false);
    ask(cmd::setObj, {{key::objectId, 1}, {field::isVolatile, c.before}});
    map->flushConfig();
    EXPECT_EQ(chain(), c.before ? "head>2 2>4 4>end" : "head>2 2>1 1>4 4>end");
  }
}

TEST_F(AOmapCommands, SetPublishesUndoOnlyWhenTheObjectIsUndoableBeforeAndAfter) {
  for (const bool merges : {false, true}) {
    for (const bool before : {false, true}) {
      for (const bool after : {false, true}) {
        start();
        map->merges = merges;
        add({{field::isFinal, before}});
        ask(cmd::setObj, {{key::objectId, 1}, {field::isFinal, after}, {field::number, 1}});
        EXPECT_EQ(kit->seen().undos.size(), before || after ? 0u : 1u) << before << after;
      }
    }
  }
}

TEST_F(AOmapCommands, PlainSetsHandTheElementTheRequestAndMergingSetsACompleteConfiguration) {
  std::vector<message> applied;
  std::vector<std::uint32_t> flags;
  Element::onSet = [&](Object&, const message& in, std::uint32_t f) {
    applied.push_back(in);
    flags.push_back(f);
  };
  Element::writesFlags = true;
  for (const bool merges : {false, true}) {
    map->merges = merges;
    const auto id = add({{field::number, 2}});
    ask(cmd::setObj, {{key::objectId, id}, {field::number, 3}});
    for (const message& m : applied) {
      EXPECT_EQ(m.has(field::text), merges);
      EXPECT_EQ(m.get(field::flags), merges ? 0x80000005 : 0);  // as it is read to be stored
      EXPECT_TRUE(m.has(key::command));                         // nothing is stripped
    }
    EXPECT_EQ(applied[1].get(field::number), 3u);
    applied.clear();
  }
  EXPECT_EQ(flags, (std::vector<std::uint32_t>{5, 5, 5, 5}));
}

TEST_F(AOmapCommands, ACommandForNobodyIsRefusedFirst) {
  for (const unsigned code : {cmd::getObj, cmd::setObj, cmd::removeObj, cmd::moveObj}) {
    for (const std::uint32_t id : {3u, 0u, 0xfffffffeu, nv::kNoId}) {
      EXPECT_EQ(ask(code, {{key::objectId, id}, {key::nextId, id}}), refused(err::noSuchObject));
      EXPECT_EQ(line(), "reply");
    }
    EXPECT_EQ(ask(code), refused(err::noSuchObject));
  }
}

// Remove.

TEST_F(AOmapCommands, RemoveTakesTheObjectOutThenTellsAndPublishesAnAddAtItsPlace) {
  addAll({2});
  add({{field::text, "lamp"}, {key::dynamic, true}});
  add({{key::objectId, 3}, {field::isVolatile, true}});
  addAll({4});
  map->onCheckRemove = [&](OObject*) {
    EXPECT_EQ(order(), "2 1 3 4");
    return message{{field::number, 99}};
  };
  map->onRemoved = [&](OObject* obj) {
    EXPECT_EQ(order(), "2 3 4");
    EXPECT_FALSE(map->ids.isAllocated(1));
    EXPECT_TRUE(map->dynamicIds.empty());
    item(obj).config.text = "gone lamp";  // the description is taken after this
  };
  Element::onDelete = [&](Object&) { kit->seen().log.emplace_back("delete"); };
  EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 1}}), message({{field::number, 99}}));
  EXPECT_EQ(line(),
            "checkRemove 1>3, unstore 1, store 2, objRemoved 1, delete, notify 1, undo gone lamp "
            "removed, reply");
  EXPECT_EQ(kit->seen().undos[0].undo,
            configured({.text = "lamp"},
                       {{key::command, cmd::addObj}, {key::objectId, 1}, {key::nextId, 3}}));
  EXPECT_EQ(chain(), "head>2 2>4 4>end");
  Element::onDelete = {};
}

TEST_F(AOmapCommands, RemoveRefusedByTheServiceChangesNothing) {
  add({{key::dynamic, true}});
  map->onCheckRemove = [](OObject*) { return nv::failedMsg("no"); };
  EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 1}}), nv::failedMsg("no"));
  EXPECT_EQ(line(), "checkRemove 1>end, reply");
  EXPECT_EQ(order(), "1");
  EXPECT_TRUE(map->dynamicIds.contains(1));
}

TEST_F(AOmapCommands, RemoveTakesARecordAlongThatTheObjectHadWhenItWasStorable) {
  addAll({1});
  at(1).config.isVolatile = true;  // without a word to the map
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(line(), "checkRemove 1>end, unstore 1, objRemoved 1, notify 1, reply");
}

// Move.

TEST_F(AOmapCommands, MovePlacesTheObjectWhereTheRequestSays) {
  struct Case {
    std::uint32_t id, position;
    const char *check, *order, *stores;
  };
  const Case cases[] = {
      {4, 2, "4>end to 2", "1 4 2 3", "store 4, store 1, store 3, "},
      {4, kFront, "4>end to 1", "4 1 2 3", "store 4, store 4294967294, store 3, "},
      {1, kEnd, "1>2 to end", "2 3 4 1", "store 1, store 4, store 4294967294, "},
      {1, 77, "1>2 to end", "2 3 4 1", "store 1, store 4, store 4294967294, "},
      {1, 0xfffffffe, "1>2 to end", "2 3 4 1", "store 1, store 4, store 4294967294, "},
      {2, 3, "2>3 to 3", "1 2 3 4", "store 2, store 1, store 1, "},  // where it stands
      {4, kEnd, "4>end to end", "1 2 3 4", "store 4, store 3, store 3, "},
  };
  for (const Case& c : cases) {
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
    const std::string moved = order();
    restart();
    EXPECT_EQ(order(), moved);
  }
  ask(cmd::moveObj, {{key::objectId, 1}});  // without a position: the end
  EXPECT_TRUE(order().ends_with("1"));
}

TEST_F(AOmapCommands, MoveBeforeItselfIsRefused) {
  addAll({1, 2});
  const message no = nv::errorMsg(0xfe0006, "can not move object before itself");
  for (const std::uint32_t position : {1u, kFront}) {
    EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, 1}, {key::nextId, position}}), no);
    EXPECT_EQ(line(), "reply");
  }
  map->front = 2;
  EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, 2}, {key::nextId, 2}}), message());  // the front
  EXPECT_EQ(order(), "2 1");
}

TEST_F(AOmapCommands, MoveRefusedByTheServiceChangesNothing) {
  addAll({1, 2});
  map->onCheckMove = [&](OObject*, OObject*, OObject*) { return nv::failedMsg("no"); };
  EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, 1}}), nv::failedMsg("no"));
  EXPECT_EQ(line(), "checkMove 1>2 to end, reply");
  EXPECT_EQ(order(), "1 2");
}

// Undo records.

TEST_F(AOmapCommands, EveryUndoRecordBringsOrderAndContentBack) {
  const struct {
    unsigned code;
    Fields fields;
  } cases[] = {
      {cmd::addObj, {{key::nextId, 2}}},
      {cmd::addObj, {{key::nextId, kFront}}},
      {cmd::setObj, {{key::objectId, 2}, {field::text, "torch"}, {field::isSilent, true}}},
      {cmd::removeObj, {{key::objectId, 1}}},
      {cmd::removeObj, {{key::objectId, 2}}},
      {cmd::removeObj, {{key::objectId, 3}}},
      {cmd::moveObj, {{key::objectId, 3}, {key::nextId, kFront}}},
      {cmd::moveObj, {{key::objectId, 1}, {key::nextId, 3}}},
      {cmd::moveObj, {{key::objectId, 2}}},
  };
  for (const bool merges : {false, true}) {
    map->merges = merges;
    if (order().empty()) {
      addAll({1});
      add({{key::objectId, 2}, {field::text, "lamp"}, {field::number, 4}});
      addAll({3});
    }
    for (const auto& c : cases) {
      const message before = ask(cmd::getAll);
      ask(c.code, c.fields);
      const message undo = kit->seen().undos.at(0).undo;
      EXPECT_NE(ask(cmd::getAll), before);
      ask(undo);
      EXPECT_EQ(ask(cmd::getAll), before);
    }
  }
}

}  // namespace
