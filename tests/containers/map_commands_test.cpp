// The commands that object maps have in common, with an order and without: replies, what is done in
// which order, and what elements are handed.
#include "tests/support/map_fixture.h"

using namespace test;

namespace {

template <class Container>
using MapCommands = EachMapTest<Container>;
TYPED_TEST_SUITE(MapCommands, Maps);

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
  for (const auto& [id, error] : {std::pair(200u, err::noSuchObject),  // the range is asked first
                                  {6u, err::idInUse},
                                  {5u, err::idInUse}}) {
    this->kit->seen().clear();
    EXPECT_EQ(this->kit->ask(*this->map, command(cmd::addObj, {{key::objectId, id}})),
              refused(error));
    EXPECT_EQ(this->line(), "reply");
  }
  EXPECT_EQ(Element::made, made);
  this->map->ids.allocate(5);
  this->map->ids.free(6);
}

TYPED_TEST(MapCommands, AddUsesTheIdThatTheServiceAllocatesUnlessItIsGivenOutTwice) {
  this->map->onAllocate = [&](std::uint32_t id) { return this->map->ids.allocate(id + 10); };
  Element::onSet = [&](Object& obj, const message&, std::uint32_t) {
    EXPECT_EQ(obj.id, this->isOrdered ? nv::kNoId : 17);
  };
  EXPECT_EQ(this->add({{key::objectId, 7}, {field::text, "first"}}), 17u);
  EXPECT_EQ(this->at(17).id, 17u);
  Element::onSet = {};
  this->map->onAllocate = [](std::uint32_t) { return 17u; };
  EXPECT_EQ(this->ask(cmd::addObj, {{key::objectId, 6}}), refused(err::idInUse));
  EXPECT_EQ(this->at(17).config.text, "first");
  EXPECT_EQ(Element::alive, 1);
}

TYPED_TEST(MapCommands, SetStoresThenTellsServiceThenSubscribersThenPublishesTheEarlierValues) {
  this->add({{field::text, "lamp"}, {field::number, 4}});
  EXPECT_EQ(
      this->ask(cmd::setObj, {{key::objectId, 1}, {field::number, 4}, {field::text, "torch"}}),
      message());
  EXPECT_EQ(this->line(),
            "checkChange 1, store 1, objChanged 1, notify 1, undo torch changed, reply");
  EXPECT_EQ(this->kit->seen().undos[0].undo,
            message({{key::command, cmd::setObj}, {key::objectId, 1}, {field::text, "lamp"}}));
  EXPECT_EQ(this->kit->seen().storeOps[0].record->get(field::text), "torch");

  const message no = nv::errorMsg(0, "");  // an error reply whatever its code
  this->map->onCheckChange = [&](auto*, auto*) { return no; };
  EXPECT_EQ(this->ask(cmd::setObj, {{key::objectId, 1}, {field::isVolatile, true}}), no);
  EXPECT_EQ(this->line(), "checkChange 1, reply");
  EXPECT_FALSE(this->at(1).config.isVolatile);
}

TYPED_TEST(MapCommands, RemoveTakesTheObjectOutThenTellsAndPublishesAnAdd) {
  this->add({{field::text, "lamp"}, {field::number, 4}, {key::dynamic, true}});
  this->map->onRemoved = [&](auto* obj) {
    EXPECT_TRUE(this->map->dynamicIds.empty());
    // The description is taken after this; what else the element is now counts no more.
    item(obj).config = {.text = "gone lamp", .isVolatile = true, .isSilent = true, .isFinal = true};
  };
  Element::onDelete = [&](Object&) { this->kit->seen().log.emplace_back("delete"); };
  EXPECT_EQ(this->ask(cmd::removeObj, {{key::objectId, 1}}), message());
  EXPECT_EQ(
      this->line(),
      "checkRemove 1, unstore 1, objRemoved 1, delete, notify 1, undo gone lamp removed, reply");
  message undo =
      configured({.text = "lamp", .number = 4}, {{key::command, cmd::addObj}, {key::objectId, 1}});
  if (this->isOrdered) undo.insert(key::nextId, kEnd);
  EXPECT_EQ(this->kit->seen().undos[0].undo, undo);
}

TYPED_TEST(MapCommands, ElementsOverwriteWhatIsStoredAndListedOfThemButNotAllThatIsTold) {
  this->add({{key::objectId, 7}});
  Element::onGet = [](Object&, message& out, std::uint32_t) {
    out.insert(key::objectId, 70).insert(key::nextId, 80).insert(key::managedId, 90);
  };
  const message own =
      configured({}, {{key::objectId, 70}, {key::nextId, 80}, {key::managedId, 90}});
  message told = own;
  this->isOrdered ? told.insert(key::nextId, kEnd) : told.insert(key::objectId, 7);
  EXPECT_EQ(this->ask(cmd::getObj, {{key::objectId, 7}}), told);
  EXPECT_EQ(this->map->getObject(7, 5), this->isOrdered ? told : own);
  EXPECT_EQ(this->map->getObject(8, 5), message({{key::objectId, 8}, {key::absent, 1}}));
  EXPECT_EQ(message(this->ask(cmd::getAll).get(key::objects)[0]), own);
  this->map->changed(&this->at(7), true);
  EXPECT_EQ(this->kit->seen().storeOps[0].record, own);
}

// Pages.

TYPED_TEST(MapCommands, PagesHoldAtMost16384BytesButAlwaysOneObject) {
  for (int i = 0; i < 5; ++i) this->add();
  padTo(4096);
  EXPECT_EQ(this->page(), "1 2 3 4 next 5");
  padTo(4096, 4);
  EXPECT_EQ(this->page(), "1 2 3 next 4");
  padTo(100000);
  EXPECT_EQ(this->page(), "1 next 2");
  EXPECT_EQ(this->page({{key::startId, 5}}), "5");
}

TYPED_TEST(MapCommands, PagesHoldAtMostAThousandObjects) {
  this->start("", 1, 5000);
  for (std::uint32_t id = 1; id <= 1001; ++id) this->put(id);
  // Entries without a byte: the limit in bytes is never reached.
  Element::onGet = [](Object&, message& out, std::uint32_t) { out.clear(); };
  const message first = this->ask(cmd::getAll, {{key::maxCount, 5000}});
  EXPECT_EQ(first.size(key::objects), 1000u);
  EXPECT_EQ(first.get(key::startId), 1001u);
  const message all = this->ask(cmd::getAll, {{key::startId, 2}});
  EXPECT_EQ(all.size(key::objects), 1000u);
  EXPECT_FALSE(all.has(key::startId));
}

}  // namespace
