// The commands of an object map: their replies, and what they do in which order.
#include <vector>

#include "tests/support/amap_fixture.h"

using namespace test;
namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::message;

namespace {

using AMapCommands = AMapTest;

// Add.

TEST_F(AMapCommands, AddStoresThenTellsServiceThenSubscribersThenPublishesUndo) {
  EXPECT_EQ(ask(cmd::addObj, {{key::objectId, 7}, {field::text, "lamp"}}),
            message({{key::objectId, 7}}));
  EXPECT_EQ(line(), "checkAdd 7, store 7, objAdded 7, notify 7, undo lamp added, reply");

  const auto& seen = kit->seen();
  EXPECT_EQ(seen.storeOps[0].record, configured({.text = "lamp"}, {{key::objectId, 7}}));
  EXPECT_EQ(seen.undos[0].undo, message({{key::command, cmd::removeObj}, {key::objectId, 7}}));
  EXPECT_EQ(seen.undos[0].request.get(field::text), "lamp");
  EXPECT_EQ(seen.notifies[0].handler, map.get());
  EXPECT_FALSE(seen.notifies[0].removed);
  EXPECT_EQ(seen.notifies[0].cookie, nullptr);
  EXPECT_TRUE(seen.notifies[0].extra.empty());
}

TEST_F(AMapCommands, AddWithoutIdGetsTheLowestFreeOne) {
  EXPECT_EQ(add({{key::objectId, 2}}), 2u);
  EXPECT_EQ(add(), 1u);
  EXPECT_EQ(add({{key::objectId, nv::kNoId}}), 3u);
  EXPECT_EQ(ids(), "1 2 3");
}

TEST_F(AMapCommands, AddIsRefusedBeforeAnythingIsMade) {
  add({{key::objectId, 5}});
  map->ids.allocate(6);  // given out by the service for something else
  map->add(makeItem(200), false);
  map->ids.free(5);  // as a service may do that hands out its own ids
  const int made = Element::made;
  const message inUse = refused(err::idInUse);
  const message outside = refused(err::noSuchObject);
  const message managed = nv::failedMsg("can not create managed object");

  const struct {
    message request, reply;
  } cases[] = {
      {{{key::objectId, 0}}, outside},
      {{{key::objectId, 101}}, outside},
      {{{key::objectId, 200}}, outside},  // the range is asked before the objects
      {{{key::objectId, 0xfffffffe}}, outside},
      {{{key::objectId, 6}}, inUse},
      {{{key::objectId, 5}}, inUse},
      {{{key::managedId, 9}}, managed},
      {{{key::managedId, 9}, {key::objectId, 101}}, managed},  // asked before the id
  };
  for (const auto& c : cases) {
    kit->seen().clear();
    message request = c.request;
    request.insert(key::command, cmd::addObj);
    EXPECT_EQ(kit->ask(*map, request), c.reply) << testing::PrintToString(c.request);
    EXPECT_EQ(line(), "reply");
  }
  EXPECT_EQ(Element::made, made);
  EXPECT_EQ(ids(), "5 200");
  map->ids.allocate(5);
  map->ids.free(6);
}

TEST_F(AMapCommands, AddTakesTheLastIdOfTheRangeAndThenNoMore) {
  start("items", 3, 5);
  EXPECT_EQ(add({{key::objectId, 5}}), 5u);
  EXPECT_EQ(ask(cmd::addObj, {{key::objectId, 6}}), refused(err::noSuchObject));
  EXPECT_EQ(ask(cmd::addObj, {{key::objectId, 5}}), refused(err::idInUse));
  EXPECT_EQ(add(), 3u);
  EXPECT_EQ(add(), 4u);

  const int made = Element::made;
  EXPECT_EQ(ask(cmd::addObj), refused(err::idInUse));
  EXPECT_EQ(line(), "reply");
  EXPECT_EQ(Element::made, made);
  EXPECT_EQ(ids(), "3 4 5");
}

TEST_F(AMapCommands, AddRefusedByTheServiceLeavesNoTrace) {
  const message no{{key::errorCode, 0x77}, {key::errorText, "no"}, {field::number, 3}};
  map->onCheckAdd = [&](Object* obj) {
    EXPECT_EQ(obj->id, 1u);
    EXPECT_EQ(item(obj).config.text, "lamp");
    EXPECT_TRUE(map->ids.isAllocated(1));
    EXPECT_TRUE(map->objects.empty());
    return no;
  };
  EXPECT_EQ(ask(cmd::addObj, {{field::text, "lamp"}, {key::dynamic, true}}), no);
  EXPECT_EQ(line(), "checkAdd 1, reply");
  EXPECT_EQ(Element::alive, 0);
  EXPECT_FALSE(map->ids.isAllocated(1));
  EXPECT_TRUE(map->dynamicIds.empty());
}

TEST_F(AMapCommands, AddRepliesWhatTheServiceSaidAndTheId) {
  map->onCheckAdd = [](Object*) { return message{{field::number, 8}, {key::objectId, 55}}; };
  EXPECT_EQ(ask(cmd::addObj), message({{field::number, 8}, {key::objectId, 1}}));
}

TEST_F(AMapCommands, AddUsesTheIdThatTheServiceAllocates) {
  map->onAllocate = [&](std::uint32_t id) { return map->ids.allocate(id + 10); };
  EXPECT_EQ(add({{key::objectId, 7}}), 17u);
  EXPECT_EQ(at(17).id, 17u);
}

TEST_F(AMapCommands, AddTellsOnlyWhatTheElementWantsTold) {
  const struct {
    message request;
    const char* line;
  } cases[] = {
      {{{field::isVolatile, true}}, "checkAdd 1, objAdded 1, notify 1, reply"},
      {{{field::isSilent, true}}, "checkAdd 1, store 1, objAdded 1, undo item added, reply"},
      {{{field::isFinal, true}}, "checkAdd 1, store 1, objAdded 1, notify 1, reply"},
      {{{key::managedId, 9}}, "checkAdd 1, store 1, objAdded 1, notify 1, reply"},
  };
  map->managed = true;
  for (const auto& c : cases) {
    message request = c.request;
    request.insert(key::command, cmd::addObj);
    ask(request);
    EXPECT_EQ(line(), c.line);
    map->remove(map->find(1));
  }
}

// Dynamic objects.

TEST_F(AMapCommands, OnlyTheSystemMakesObjectsDynamic) {
  constexpr std::uint32_t absent = 1;
  const struct {
    bool asked;
    std::uint32_t rights;
    bool isDynamic;
  } cases[] = {
      {true, absent, true},       {true, 0x80000000, true},  {true, 0xffffffff, true},
      {true, 0, false},           {true, 0x7fffffff, false}, {false, absent, false},
      {false, 0x80000000, false},
  };
  for (const auto& c : cases) {
    const auto who = c.rights == absent ? nv::testkit::Requester{} : userWithRights(c.rights);
    const auto id = ask(cmd::addObj, {{key::dynamic, c.asked}}, who).get(key::objectId);
    EXPECT_EQ(map->dynamicIds.contains(id), c.isDynamic) << c.asked << ' ' << c.rights;
  }
}

TEST_F(AMapCommands, UsersDoNotChangeDynamicObjects) {
  add({{key::dynamic, true}, {field::number, 4}});
  for (const std::uint32_t rights : {0u, 1u, 0x7fffffffu}) {
    EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}, {field::number, 5}}, userWithRights(rights)),
              nv::failedMsg("can't edit dynamic object"));
    EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 1}}, userWithRights(rights)),
              nv::failedMsg("can't remove dynamic object"));
    EXPECT_EQ(line(), "reply");
  }
  EXPECT_EQ(at(1).config.number, 4u);
  EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}, {field::number, 5}}, userWithRights(0x80000000)),
            message());
  EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 1}}), message());
}

TEST_F(AMapCommands, DynamicMarksDoNotOutliveTheirObjects) {
  add({{key::dynamic, true}});
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(add(), 1u);
  EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 1}}, userWithRights(0)), message());

  add({{key::dynamic, true}});
  map->remove(map->find(1));
  EXPECT_TRUE(map->dynamicIds.empty());
}

// Set.

TEST_F(AMapCommands, SetStoresThenTellsServiceThenSubscribersThenPublishesTheEarlierValues) {
  for (const bool merges : {false, true}) {
    start();
    map->merges = merges;
    add({{field::text, "lamp"}, {field::number, 4}});
    map->onCheckChange = [&](Object* old, Object* obj) {
      EXPECT_EQ(item(old).config, (ElementConfig{.text = "lamp", .number = 4}));
      EXPECT_EQ(item(obj).config, (ElementConfig{.text = "lamp", .number = 6}));
      EXPECT_EQ(old->id, 1u);
      return message{{field::number, 99}};
    };
    map->onChanged = [](Object* old, Object* obj) {
      EXPECT_EQ(item(old).config.number, 4u);
      EXPECT_EQ(item(obj).config.number, 6u);
    };
    EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}, {field::number, 6}, {field::text, "lamp"}}),
              message({{field::number, 99}}));
    EXPECT_EQ(line(), "checkChange 1, store 1, objChanged 1, notify 1, undo lamp changed, reply");
    EXPECT_EQ(kit->seen().undos[0].undo,
              message({{key::command, cmd::setObj}, {key::objectId, 1}, {field::number, 4}}));
    EXPECT_EQ(kit->seen().storeOps[0].record,
              configured({.text = "lamp", .number = 6}, {{key::objectId, 1}}));
    EXPECT_EQ(Element::alive, 1);
  }
}

TEST_F(AMapCommands, UndoOfASetIsNamedAfterTheChangedObject) {
  add({{field::text, "lamp"}});
  ask(cmd::setObj, {{key::objectId, 1}, {field::text, "torch"}});
  EXPECT_EQ(kit->seen().undos[0].description, "torch changed");
}

TEST_F(AMapCommands, SetRefusedByTheServicePutsTheObjectBack) {
  for (const bool merges : {false, true}) {
    start();
    map->merges = merges;
    add({{field::text, "lamp"}, {field::number, 4}});
    const message no = nv::errorMsg(0, "");  // an error reply whatever its code
    map->onCheckChange = [&](Object*, Object*) { return no; };
    EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}, {field::number, 6}, {field::isVolatile, true}}),
              no);
    EXPECT_EQ(line(), "checkChange 1, reply");
    EXPECT_EQ(at(1).config, (ElementConfig{.text = "lamp", .number = 4}));
    EXPECT_EQ(Element::alive, 1);
  }
}

TEST_F(AMapCommands, SetFollowsWhetherTheObjectIsStorable) {
  const struct {
    bool before, after;
    const char* line;
  } cases[] = {
      {false, false, "checkChange 1, store 1, objChanged 1, notify 1, undo item changed, reply"},
      {false, true, "checkChange 1, unstore 1, objChanged 1, notify 1, reply"},
      {true, false, "checkChange 1, store 1, objChanged 1, notify 1, reply"},
      {true, true, "checkChange 1, objChanged 1, notify 1, reply"},
  };
  for (const auto& c : cases) {
    start();
    add({{field::isVolatile, c.before}});
    ask(cmd::setObj, {{key::objectId, 1}, {field::isVolatile, c.after}});
    EXPECT_EQ(line(), c.line) << c.before << c.after;
  }
}

TEST_F(AMapCommands, SetPublishesUndoOnlyWhenTheObjectIsUndoableBeforeAndAfter) {
  const struct {
    bool before, after;
    std::size_t undos;
  } cases[] = {{false, false, 1}, {true, false, 0}, {false, true, 0}, {true, true, 0}};
  for (const bool merges : {false, true}) {
    for (const auto& c : cases) {
      start();
      map->merges = merges;
      add({{field::isFinal, c.before}});
      ask(cmd::setObj, {{key::objectId, 1}, {field::isFinal, c.after}, {field::number, 1}});
      EXPECT_EQ(kit->seen().undos.size(), c.undos) << c.before << c.after;
    }
  }
}

TEST_F(AMapCommands, PlainSetsHandTheElementTheRequestAndMergingSetsACompleteConfiguration) {
  std::vector<message> applied;
  std::vector<std::uint32_t> flags;
  Element::onSet = [&](Object&, const message& in, std::uint32_t f) {
    applied.push_back(in);
    flags.push_back(f);
  };
  Element::writesFlags = true;
  add({{field::text, "lamp"}});
  ask(cmd::setObj, {{key::objectId, 1}, {field::number, 2}});
  EXPECT_FALSE(applied[1].has(field::text));
  EXPECT_EQ(applied[1].get(key::command), cmd::setObj);  // nothing is stripped

  map->merges = true;
  ask(cmd::setObj, {{key::objectId, 1}, {field::number, 3}});
  EXPECT_EQ(applied[2].get(field::text), "lamp");
  EXPECT_EQ(applied[2].get(field::number), 3u);
  EXPECT_EQ(applied[2].get(field::flags), 0x80000005);  // it was read as it is stored
  EXPECT_EQ(applied[2].get(key::command), cmd::setObj);
  EXPECT_EQ(flags, (std::vector<std::uint32_t>{5, 5, 5}));
}

// Managed objects.

TEST_F(AMapCommands, OnlyWhoManagesAnObjectChangesIt) {
  map->managed = true;
  add({{key::objectId, 1}, {key::managedId, 9}});
  add({{key::objectId, 2}});
  const message no = nv::failedMsg("can not change managed object");
  const struct {
    std::uint32_t id, manager;
    bool allowed;
  } cases[] = {
      {1, nv::kNoId, false}, {1, 8, false}, {1, 9, true}, {2, 9, false}, {2, nv::kNoId, true}};
  for (const auto& c : cases) {
    EXPECT_EQ(ask(cmd::setObj, {{key::objectId, c.id}, {key::managedId, c.manager}}),
              c.allowed ? message() : no);
  }
  for (const auto& c : cases) {
    EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, c.id}, {key::managedId, c.manager}}),
              c.allowed ? message() : no);
  }
}

TEST_F(AMapCommands, ManagedObjectsAreChangedWithoutUndo) {
  map->managed = true;
  add({{key::managedId, 9}});
  ask(cmd::setObj, {{key::objectId, 1}, {key::managedId, 9}, {field::number, 1}});
  EXPECT_EQ(line(), "checkChange 1, store 1, objChanged 1, notify 1, reply");
  EXPECT_EQ(kit->seen().storeOps[0].record->get(key::managedId), 9u);
  ask(cmd::removeObj, {{key::objectId, 1}, {key::managedId, 9}});
  EXPECT_EQ(line(), "checkRemove 1, unstore 1, objRemoved 1, notify 1, reply");
}

TEST_F(AMapCommands, TheManagerIsAskedForBeforeTheDynamicMark) {
  map->managed = true;
  add({{key::managedId, 9}, {key::dynamic, true}});
  EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}}, userWithRights(0)),
            nv::failedMsg("can not change managed object"));
  EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 1}}, userWithRights(0)),
            nv::failedMsg("can not change managed object"));
}

TEST_F(AMapCommands, ACommandForNobodyIsRefusedFirst) {
  for (const unsigned code : {cmd::getObj, cmd::setObj, cmd::removeObj}) {
    for (const std::uint32_t id : {3u, 0u, 0xfffffffeu, nv::kNoId}) {
      EXPECT_EQ(ask(code, {{key::objectId, id}, {key::managedId, 9}}), refused(err::noSuchObject));
      EXPECT_EQ(line(), "reply");
    }
    EXPECT_EQ(ask(code), refused(err::noSuchObject));
  }
}

// Remove.

TEST_F(AMapCommands, RemoveTakesTheObjectOutThenTellsAndPublishesAnAdd) {
  add({{field::text, "lamp"}, {field::number, 4}, {key::dynamic, true}});
  map->onCheckRemove = [&](Object*) {
    EXPECT_EQ(ids(), "1");
    EXPECT_TRUE(map->dynamicIds.contains(1));
    return message{{field::number, 99}};
  };
  map->onRemoved = [&](Object* obj) {
    EXPECT_TRUE(map->objects.empty());
    EXPECT_FALSE(map->ids.isAllocated(1));
    EXPECT_TRUE(map->dynamicIds.empty());
    item(obj).config.text = "gone lamp";  // the description is taken after this
  };
  Element::onDelete = [&](Object&) { kit->seen().log.emplace_back("delete"); };
  EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 1}}), message({{field::number, 99}}));
  EXPECT_EQ(
      line(),
      "checkRemove 1, unstore 1, objRemoved 1, delete, notify 1, undo gone lamp removed, reply");
  EXPECT_EQ(
      kit->seen().undos[0].undo,
      configured({.text = "lamp", .number = 4}, {{key::command, cmd::addObj}, {key::objectId, 1}}));
  EXPECT_EQ(Element::alive, 0);
}

TEST_F(AMapCommands, RemoveRefusedByTheServiceChangesNothing) {
  add({{key::dynamic, true}});
  map->onCheckRemove = [](Object*) { return nv::failedMsg("no"); };
  EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 1}}), nv::failedMsg("no"));
  EXPECT_EQ(line(), "checkRemove 1, reply");
  EXPECT_EQ(ids(), "1");
  EXPECT_TRUE(map->dynamicIds.contains(1));
}

TEST_F(AMapCommands, RemoveTellsOnlyWhatTheElementWantedTold) {
  const struct {
    message config;
    const char* line;
  } cases[] = {
      {{{field::isVolatile, true}}, "checkRemove 1, objRemoved 1, notify 1, reply"},
      {{{field::isSilent, true}},
       "checkRemove 1, unstore 1, objRemoved 1, undo item removed, reply"},
      {{{field::isFinal, true}}, "checkRemove 1, unstore 1, objRemoved 1, notify 1, reply"},
  };
  for (const auto& c : cases) {
    message request = c.config;
    request.insert(key::command, cmd::addObj);
    ask(request);
    // What the element is after the removal was accepted counts no more.
    map->onRemoved = [](Object* obj) { item(obj).config = {}; };
    ask(cmd::removeObj, {{key::objectId, 1}});
    EXPECT_EQ(line(), c.line);
  }
}

// Undo records.

TEST_F(AMapCommands, EveryUndoRecordBringsTheStateBack) {
  for (const bool merges : {false, true}) {
    start();
    map->merges = merges;
    const auto undoLast = [&] {
      const message undo = kit->seen().undos.at(0).undo;
      return ask(undo);
    };
    add({{field::text, "lamp"}, {field::number, 4}});
    undoLast();
    EXPECT_EQ(ids(), "");

    add({{field::text, "lamp"}, {field::number, 4}});
    ask(cmd::setObj, {{key::objectId, 1}, {field::text, "torch"}, {field::isSilent, true}});
    undoLast();
    EXPECT_EQ(at(1).config, (ElementConfig{.text = "lamp", .number = 4}));

    ask(cmd::removeObj, {{key::objectId, 1}});
    undoLast();
    EXPECT_EQ(at(1).config, (ElementConfig{.text = "lamp", .number = 4}));
  }
}

}  // namespace
