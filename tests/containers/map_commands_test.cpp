// The commands that object maps have in common, with an order and without: replies, what is done in
// which order, and what elements are handed.
#include "tests/support/map_fixture.h"

using namespace test;

namespace {

template <class Container>
using MapCommands = EachMapTest<Container>;
TYPED_TEST_SUITE(MapCommands, Maps);

// Add.

TYPED_TEST(MapCommands, AddStoresThenTellsServiceThenSubscribersThenPublishesUndo) {
  this->map->onCheckAdd = [](auto*) { return message{{field::number, 8}, {key::objectId, 55}}; };
  EXPECT_EQ(this->ask(cmd::addObj, {{key::objectId, 7}, {field::text, "lamp"}}),
            message({{field::number, 8}, {key::objectId, 7}}));
  EXPECT_EQ(this->line(), "checkAdd 7, store 7, objAdded 7, notify 7, undo lamp added, reply");

  const auto& seen = this->kit->seen();
  message record = configured({.text = "lamp"}, {{key::objectId, 7}});
  if (this->isOrdered) record.insert(key::nextId, kEnd);
  EXPECT_EQ(seen.storeOps[0].record, record);
  EXPECT_EQ(seen.undos[0].undo, message({{key::command, cmd::removeObj}, {key::objectId, 7}}));
  EXPECT_EQ(seen.undos[0].request.get(field::text), "lamp");
  EXPECT_EQ(seen.notifies[0].handler, this->map.get());
  EXPECT_FALSE(seen.notifies[0].removed);
  EXPECT_EQ(seen.notifies[0].cookie, nullptr);
  EXPECT_TRUE(seen.notifies[0].extra.empty());
}

TYPED_TEST(MapCommands, AddIsRefusedBeforeAnythingIsMade) {
  this->add({{key::objectId, 5}});
  this->map->ids.allocate(6);  // given out by the service for something else
  this->put(200);
  this->map->ids.free(5);  // as a service may do that hands out its own ids
  const int made = Element::made;
  const message inUse = refused(err::idInUse), outside = refused(err::noSuchObject),
                managed = nv::failedMsg("can not create managed object"),
                nowhere = refused(err::noSuchPosition);
  std::vector<std::pair<message, message>> cases = {
      {{{key::objectId, 0}}, outside},
      {{{key::objectId, 101}}, outside},
      {{{key::objectId, 200}}, outside},  // the range is asked before the objects
      {{{key::objectId, 0xfffffffe}}, outside},
      {{{key::objectId, 6}}, inUse},
      {{{key::objectId, 5}}, inUse},
  };
  if (this->isOrdered) {
    cases.push_back({{{key::nextId, 8}}, nowhere});
    cases.push_back({{{key::nextId, 8}, {key::objectId, 101}}, nowhere});  // asked before the id
    cases.push_back({{{key::nextId, 0xfffffffe}}, nowhere});
  } else {
    cases.push_back({{{key::managedId, 9}}, managed});
    cases.push_back({{{key::managedId, 9}, {key::objectId, 101}}, managed});
  }
  for (auto& [request, reply] : cases) {
    this->kit->seen().clear();
    request.insert(key::command, cmd::addObj);
    EXPECT_EQ(this->kit->ask(*this->map, request), reply) << testing::PrintToString(request);
    EXPECT_EQ(this->line(), "reply");
  }
  EXPECT_EQ(Element::made, made);
  EXPECT_EQ(this->order(), "5 200");
  this->map->ids.allocate(5);
  this->map->ids.free(6);
}

TYPED_TEST(MapCommands, AddTakesTheLastIdOfTheRangeAndTheLowestFreeOneUntilNoneIsLeft) {
  this->start("items", 3, 5);
  EXPECT_EQ(this->add({{key::objectId, 5}}), 5u);
  EXPECT_EQ(this->add(), 3u);
  EXPECT_EQ(this->add({{key::objectId, kEnd}}), 4u);
  const int made = Element::made;
  EXPECT_EQ(this->ask(cmd::addObj), refused(err::idInUse));
  EXPECT_EQ(this->line(), "reply");
  EXPECT_EQ(Element::made, made);
}

TYPED_TEST(MapCommands, AddRefusedByTheServiceLeavesNoTrace) {
  const message no{{key::errorCode, 0x77}, {key::errorText, "no"}, {field::number, 3}};
  this->map->onCheckAdd = [&](auto* obj) {
    EXPECT_EQ(item(obj).config.text, "lamp");
    EXPECT_TRUE(this->map->ids.isAllocated(1));
    EXPECT_EQ(this->order(), "");
    return no;
  };
  EXPECT_EQ(this->ask(cmd::addObj, {{field::text, "lamp"}, {key::dynamic, true}}), no);
  EXPECT_EQ(this->line(), "checkAdd 1, reply");
  EXPECT_EQ(Element::alive, 0);
}

TYPED_TEST(MapCommands, AddUsesTheIdThatTheServiceAllocatesUnlessItIsGivenOutTwice) {
  this->map->onAllocate = [&](std::uint32_t id) { return this->map->ids.allocate(id + 10); };
  for (const std::uint32_t id : {17u, 18u}) {
    this->map->merges = id == 18;
    Element::onSet = [&, id](Object& obj, const message&, std::uint32_t) {
      EXPECT_EQ(obj.id, this->isOrdered ? nv::kNoId : id);
    };
    EXPECT_EQ(this->add({{key::objectId, id - 10}, {field::text, "first"}}), id);
    EXPECT_EQ(this->at(id).id, id);
  }
  Element::onSet = {};
  this->map->onAllocate = [](std::uint32_t) { return 17u; };
  EXPECT_EQ(this->ask(cmd::addObj, {{key::objectId, 6}}), refused(err::idInUse));
  EXPECT_EQ(this->at(17).config.text, "first");
  EXPECT_EQ(Element::alive, 2);
}

TYPED_TEST(MapCommands, TellOnlyWhatTheElementWantsTold) {
  const std::vector<std::pair<message, const char*>> cases = {
      {{{field::isVolatile, true}}, "checkAdd 1, objAdded 1, notify 1, reply"},
      {{{field::isSilent, true}}, "checkAdd 1, store 1, objAdded 1, undo item added, reply"},
      {{{field::isFinal, true}}, "checkAdd 1, store 1, objAdded 1, notify 1, reply"},
  };
  for (auto [request, line] : cases) {
    this->ask(request.insert(key::command, cmd::addObj));
    EXPECT_EQ(this->line(), line);
    this->drop(1);
  }
}

TYPED_TEST(MapCommands, OnlyTheSystemMakesAndChangesDynamicObjects) {
  for (const std::uint32_t rights : {0x80000000u, 0xffffffffu, 0u, 0x7fffffffu}) {
    const bool isSystem = rights >= 0x80000000;
    const auto ask = [&](unsigned code, Fields fields) {
      return this->ask(code, fields, userWithRights(rights));
    };
    ask(cmd::addObj, {{key::objectId, 1}, {key::dynamic, true}});
    EXPECT_EQ(this->map->dynamicIds.contains(1), isSystem) << rights;
    this->map->dynamicIds.insert(1);
    EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}}),
              isSystem ? message() : nv::failedMsg("can't edit dynamic object"));
    EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 1}}),
              isSystem ? message() : nv::failedMsg("can't remove dynamic object"));
    if (!isSystem) this->drop(1);
    EXPECT_TRUE(this->map->dynamicIds.empty());
  }
}

// Set and remove.

TYPED_TEST(MapCommands, SetStoresThenTellsServiceThenSubscribersThenPublishesTheEarlierValues) {
  const ElementConfig before{.text = "lamp", .number = 4}, after{.text = "torch", .number = 4};
  for (const bool merges : {false, true}) {
    this->start();
    this->map->merges = merges;
    this->add({{field::text, "lamp"}, {field::number, 4}});
    this->map->onCheckChange = [&](auto* old, auto* obj) {
      EXPECT_EQ(old->id, 1u);
      EXPECT_EQ(item(old).config, before);
      EXPECT_EQ(item(obj).config, after);
      return message{{field::number, 99}};
    };
    this->map->onChanged = [&](auto* old, auto* obj) {
      EXPECT_EQ(item(old).config, before);
      EXPECT_EQ(item(obj).config, after);
    };
    const message request =
        command(cmd::setObj, {{key::objectId, 1}, {field::number, 4}, {field::text, "torch"}});
    EXPECT_EQ(this->ask(request), message({{field::number, 99}}));
    EXPECT_EQ(this->line(),
              "checkChange 1, store 1, objChanged 1, notify 1, undo torch changed, reply");
    EXPECT_EQ(this->kit->seen().undos[0].undo,
              message({{key::command, cmd::setObj}, {key::objectId, 1}, {field::text, "lamp"}}));
    EXPECT_EQ(this->kit->seen().storeOps[0].record->get(field::text), "torch");

    const message no = nv::errorMsg(0, "");  // an error reply whatever its code
    this->map->onCheckChange = [&](auto*, auto*) { return no; };
    EXPECT_EQ(this->ask(cmd::setObj, {{key::objectId, 1}, {field::isVolatile, true}}), no);
    EXPECT_EQ(this->line(), "checkChange 1, reply");
    EXPECT_EQ(this->at(1).config, after);
    EXPECT_EQ(Element::alive, 1);
  }
}

TYPED_TEST(MapCommands, PlainSetsHandTheElementTheRequestAndMergingSetsACompleteConfiguration) {
  std::vector<message> applied;
  Element::onSet = [&](Object&, const message& in, std::uint32_t flags) {
    applied.push_back(in);
    EXPECT_EQ(flags, 5u);
  };
  Element::writesFlags = true;
  for (const bool merges : {false, true}) {
    this->map->merges = merges;
    const auto id = this->add({{field::number, 2}});
    this->ask(cmd::setObj, {{key::objectId, id}, {field::number, 3}});
    for (const message& m : applied) {
      EXPECT_EQ(m.has(field::text), merges);
      EXPECT_EQ(m.get(field::flags), merges ? 0x80000005 : 0);  // as it is read to be stored
      EXPECT_TRUE(m.has(key::command));                         // nothing is stripped
    }
    EXPECT_EQ(applied[1].get(field::number), 3u);
    applied.clear();
  }
}

TYPED_TEST(MapCommands, ACommandForNobodyIsRefusedFirst) {
  const unsigned move = this->isOrdered ? cmd::moveObj : cmd::getObj;
  for (const unsigned code : {cmd::getObj, cmd::setObj, cmd::removeObj, move}) {
    for (const std::uint32_t id : {3u, 0u, 0xfffffffeu, nv::kNoId}) {
      EXPECT_EQ(this->ask(code, {{key::objectId, id}, {key::nextId, id}, {key::managedId, 9}}),
                refused(err::noSuchObject));
      EXPECT_EQ(this->line(), "reply");
    }
    EXPECT_EQ(this->ask(code), refused(err::noSuchObject));
  }
}

TYPED_TEST(MapCommands, RemoveTakesTheObjectOutThenTellsAndPublishesAnAdd) {
  this->add({{field::text, "lamp"}, {field::number, 4}, {key::dynamic, true}});
  this->map->onCheckRemove = [](auto*) { return nv::failedMsg("no"); };
  EXPECT_EQ(this->ask(cmd::removeObj, {{key::objectId, 1}}), nv::failedMsg("no"));
  EXPECT_EQ(this->line(), "checkRemove 1, reply");

  this->map->onCheckRemove = [&](auto*) {
    EXPECT_EQ(this->order(), "1");
    EXPECT_TRUE(this->map->dynamicIds.contains(1));
    return message{{field::number, 99}};
  };
  this->map->onRemoved = [&](auto* obj) {
    EXPECT_EQ(this->order(), "");
    EXPECT_FALSE(this->map->ids.isAllocated(1));
    EXPECT_TRUE(this->map->dynamicIds.empty());
    // The description is taken after this; what else the element is now counts no more.
    item(obj).config = {.text = "gone lamp", .isVolatile = true, .isSilent = true, .isFinal = true};
  };
  Element::onDelete = [&](Object&) { this->kit->seen().log.emplace_back("delete"); };
  EXPECT_EQ(this->ask(cmd::removeObj, {{key::objectId, 1}}), message({{field::number, 99}}));
  EXPECT_EQ(
      this->line(),
      "checkRemove 1, unstore 1, objRemoved 1, delete, notify 1, undo gone lamp removed, reply");
  message undo =
      configured({.text = "lamp", .number = 4}, {{key::command, cmd::addObj}, {key::objectId, 1}});
  if (this->isOrdered) undo.insert(key::nextId, kEnd);
  EXPECT_EQ(this->kit->seen().undos[0].undo, undo);
}

}  // namespace
