// What the service itself does to object maps, hooks that call back, and what all do with a store.
#include "tests/support/map_fixture.h"

using namespace test;

namespace {

// Hooks that call back.

template <class Container>
using MapHooks = EachMapTest<Container>;
TYPED_TEST_SUITE(MapHooks, Maps);

TYPED_TEST(MapHooks, MayEvenRemoveTheObjectThatTheyAreCalledFor) {
  const auto drop = [&](auto* obj) { this->drop(obj->id); };
  const auto expect = [&](unsigned code, const message& reply, const std::string& line) {
    EXPECT_EQ(this->ask(code, {{key::objectId, 1}}), reply);
    EXPECT_EQ(this->line(), line + ", unstore 1, notify 1, reply");
  };
  this->map->onAdded = drop;
  expect(cmd::addObj, {{key::objectId, 1}}, "checkAdd 1, store 1, objAdded 1");
  this->map->onAdded = {};

  this->add();
  this->map->onCheckChange = [&](auto*, auto* obj) { return drop(obj), nv::failedMsg("gone"); };
  expect(cmd::setObj, nv::failedMsg("gone"), "checkChange 1");
  this->map->onCheckChange = {};

  this->add();
  this->map->onChanged = [&](auto*, auto* obj) { drop(obj); };
  expect(cmd::setObj, {}, "checkChange 1, store 1, objChanged 1");

  this->add();
  this->map->onCheckRemove = [&](auto* obj) { return drop(obj), message(); };
  expect(cmd::removeObj, {}, "checkRemove 1");
  EXPECT_EQ(Element::alive, 0);
}

TYPED_TEST(MapHooks, MayAddAndRemoveOthersAndSendCommands) {
  this->addAll({50});
  this->map->onCheckAdd = [&](auto*) { return this->put(kEnd), message(); };
  this->map->onAdded = [&](auto*) { this->drop(50); };
  EXPECT_EQ(this->add({{key::objectId, 10}}), 10u);
  EXPECT_EQ(this->order(), "1 10");
  this->map->onRemoved = [&](auto* obj) { this->put(obj->id, {.text = "new"}); };
  this->ask(cmd::removeObj, {{key::objectId, 10}});
  EXPECT_EQ(this->at(10).config.text, "new");
  this->map->onRemoved = {};
  this->map->onChanged = [&](auto*, auto* obj) {
    if (obj->id != 1) return;
    this->map->cmdSetObj(message{{field::number, 7}}, 10);
    this->map->cmdRemoveObj({}, 10);
  };
  EXPECT_EQ(this->ask(cmd::setObj, {{key::objectId, 1}}), message());
  EXPECT_EQ(this->order(), "1");
}

// Changes by the service.

template <class Container>
using MapService = EachMapTest<Container>;
TYPED_TEST_SUITE(MapService, Maps);

TYPED_TEST(MapService, AddsUnderAnyIdOrTheNextFreeOneAndRemoves) {
  this->start("items", 1, 1);
  EXPECT_EQ(this->put(kEnd).get()->id, 1u);
  EXPECT_EQ(this->put(300).get()->id, 300u);  // no range is asked
  this->kit->seen().clear();
  EXPECT_TRUE(this->put(kEnd) == this->map->end());  // no id is free: it is lost
  EXPECT_EQ(this->line(), "");
  EXPECT_EQ(Element::alive, 2);
  Element::onDelete = [&](Object&) { this->kit->seen().log.emplace_back("delete"); };
  const auto other = this->map->find(300);
  this->drop(1);
  EXPECT_EQ(this->line(), "unstore 1, notify 1, delete");
  EXPECT_TRUE(this->map->begin() == other);
  EXPECT_TRUE(this->map->find(1) == this->map->end());
}

// The store.

template <class Container>
using MapStore = EachMapTest<Container>;
TYPED_TEST_SUITE(MapStore, Maps);

TYPED_TEST(MapStore, KeepsForTheNextFlushWhatElementsPutOffDuringOne) {
  this->map->setAutoStore(false);
  this->addAll({1, 2});
  Element::onGet = [&](Object& obj, message&, std::uint32_t flags) {
    if (obj.id == 2 && (flags & nv::kStoreBit) != 0) this->map->storeObj(&this->at(1));
  };
  this->kit->seen().clear();
  this->map->flushConfig();
  EXPECT_EQ(this->line(), "store 1, store 2");
  EXPECT_EQ(this->map->pending, std::set<std::uint32_t>{1});
}

TYPED_TEST(MapStore, IsNotNeeded) {
  this->start("");
  this->map->init();
  this->map->setAutoStore(false);
  this->addAll({1, 2});
  this->ask(cmd::setObj, {{key::objectId, 1}, {field::isVolatile, true}});
  if (this->isOrdered) this->ask(cmd::moveObj, {{key::objectId, 1}});
  this->map->flushConfig();
  this->map->setAutoStore(true);
  this->ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(this->line(), "checkRemove 1, objRemoved 1, notify 1, reply");
  EXPECT_TRUE(this->map->pending.empty());
}

TYPED_TEST(MapStore, IsClosedBeforeTheElementsAreDeletedWhoMayStillAsk) {
  this->addAll({1, 2});
  this->kit->seen().clear();
  auto* const dying = this->map.get();
  Element::onDelete = [&, dying](Object& obj) {
    this->kit->seen().log.push_back("delete " + std::to_string(obj.id));
    EXPECT_EQ(dying->store, nullptr);
    EXPECT_TRUE(dying->begin() == dying->end());
    if constexpr (std::is_same_v<TypeParam, TestOmap>)
      EXPECT_EQ(dying->getNextObj(nullptr), nullptr);
    else
      dying->removeObj(1);
    dying->flushConfig();
  };
  this->map.reset();
  EXPECT_EQ(this->line(), "delete 1, delete 2");
  Element::onDelete = {};
  this->restart();
  EXPECT_EQ(this->order(), "1 2");
}

}  // namespace
