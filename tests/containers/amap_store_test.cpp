// An object map and its store: when records are written, what they hold, and how they come back.
#include <vector>

#include "tests/support/amap_fixture.h"

using namespace test;
namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::message;

namespace {

class AMapStore : public AMapTest {
 protected:
  void putRecord(std::uint32_t id, Fields fields = {}) {
    message record(fields);
    record.insert(key::objectId, id);
    stores.set("items", id, record);
  }
};

TEST_F(AMapStore, BringsBackEveryStorableObjectAfterARestart) {
  for (const bool merges : {false, true}) {
    map->merges = merges;
    map->managed = true;
    add({{key::objectId, 3}, {field::text, "lamp"}, {field::number, 4}});
    add({{key::objectId, 9}, {key::managedId, 77}});
    add({{key::objectId, 5}, {field::isVolatile, true}});
    add({{key::objectId, 4}, {field::isFinal, true}});

    start();
    map->merges = merges;
    map->managed = true;
    EXPECT_EQ(initPrints(), "");
    EXPECT_EQ(line(),
              "checkRestore 3, objAdded 3, checkRestore 4, objAdded 4, checkRestore 9, objAdded 9");
    EXPECT_EQ(at(3).config, (ElementConfig{.text = "lamp", .number = 4}));
    EXPECT_TRUE(at(4).config.isFinal);
    EXPECT_EQ(at(9).manager, 77u);
    EXPECT_EQ(add(), 1u);
    EXPECT_EQ(ask(cmd::addObj, {{key::objectId, 9}}), refused(err::idInUse));
    stop();
    stores.clear();
    start();
  }
}

TEST_F(AMapStore, ForgetsWhichObjectsWereDynamic) {
  add({{key::dynamic, true}});
  EXPECT_EQ(stored(), "1");
  restart();
  EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}}, userWithRights(0)), message());
}

TEST_F(AMapStore, HandsElementsTheStoreFlagsWhenItReadsThem) {
  putRecord(1, {{field::number, 4}});
  for (const bool merges : {false, true}) {
    start();
    map->merges = merges;
    std::string flags;
    Element::onGet = [&](Object&, message&, std::uint32_t f) {
      flags += " get " + std::to_string(f);
    };
    Element::onSet = [&](Object&, const message& in, std::uint32_t f) {
      flags += " set " + std::to_string(f);
      EXPECT_EQ(in.has(field::text), merges);
      EXPECT_EQ(in.get(field::number), 4u);
    };
    map->init();
    EXPECT_EQ(flags, merges ? " get 2147483653 set 2147483653" : " set 2147483653");
  }
}

TEST_F(AMapStore, DropsARecordThatTheServiceRefusesAndSaysWhy) {
  for (const std::uint32_t id : {2u, 4u, 6u}) putRecord(id, {{field::number, id}});
  start();
  map->onCheckRestore = [&](Object* obj) {
    return obj->id == 4 ? nv::errorMsg(0xfe0004, "is four") : message();
  };
  EXPECT_EQ(initPrints(), "AMap: load from store error: is four (16646148)\n");
  EXPECT_EQ(line(),
            "checkRestore 2, objAdded 2, checkRestore 4, unstore 4, checkRestore 6, objAdded 6");
  EXPECT_EQ(ids(), "2 6");
  EXPECT_EQ(stored(), "2 6");
  EXPECT_FALSE(map->ids.isAllocated(4));
  EXPECT_EQ(Element::alive, 2);
}

TEST_F(AMapStore, DropsARefusedRecordAtOnceAlsoWhenWritesArePutOff) {
  putRecord(1);
  start();
  map->setAutoStore(false);
  map->onCheckRestore = [](Object*) { return nv::failedMsg("no"); };
  initPrints();
  EXPECT_EQ(stored(), "");
  EXPECT_TRUE(map->pending.empty());
}

TEST_F(AMapStore, PrintsCodesAsDecimalNumbersWhateverTheStreamDoes) {
  putRecord(1);
  start();
  map->onCheckRestore = [](Object*) { return nv::errorMsg(255, "no"); };
  std::cout << std::hex << std::showbase;
  EXPECT_EQ(initPrints(), "AMap: load from store error: no (255)\n");
  std::cout << std::dec << std::noshowbase;
}

TEST_F(AMapStore, GivesAnotherIdToARecordWhoseIdIsTaken) {
  putRecord(1, {{field::text, "stored"}});
  start();
  map->add(makeItem(1, "built-in"), false);
  kit->seen().clear();
  EXPECT_EQ(initPrints(), "");
  EXPECT_EQ(line(), "checkRestore 2, objAdded 2");
  EXPECT_EQ(at(1).config.text, "built-in");
  EXPECT_EQ(at(2).config.text, "stored");
  EXPECT_EQ(stored(), "1");
  ask(cmd::setObj, {{key::objectId, 2}});
  EXPECT_EQ(stored(), "1 2");
}

TEST_F(AMapStore, RestoresAStorableBuiltInBesideItself) {
  start();
  map->add(makeItem(1, "built-in"), true);
  map->init();
  EXPECT_EQ(ids(), "1 2");
  EXPECT_EQ(at(2).config.text, "built-in");
}

TEST_F(AMapStore, RemovesTheRecordItReadAndFreesTheIdItGaveWhenTheyDiffer) {
  putRecord(1);
  start();
  map->add(makeItem(1), false);
  map->onCheckRestore = [](Object*) { return nv::failedMsg("no"); };
  kit->seen().clear();
  initPrints();
  EXPECT_EQ(line(), "checkRestore 2, unstore 1");
  EXPECT_EQ(ids(), "1");
  EXPECT_TRUE(map->ids.isAllocated(1));
  EXPECT_FALSE(map->ids.isAllocated(2));
}

TEST_F(AMapStore, KeepsARecordForWhichNoIdIsFree) {
  putRecord(1, {{field::text, "stored"}});
  start("items", 1, 1);
  map->add(makeItem(1, "built-in"), false);
  kit->seen().clear();
  EXPECT_EQ(initPrints(), "");
  EXPECT_EQ(line(), "");
  EXPECT_EQ(ids(), "1");
  EXPECT_EQ(stored(), "1");
  EXPECT_EQ(Element::alive, 1);
}

TEST_F(AMapStore, TakesRecordsOutsideTheRangeAndGivesAnIdToOneUnderNone) {
  putRecord(500, {{field::text, "outside"}});
  putRecord(nv::kNoId, {{field::text, "nowhere"}});
  start();
  EXPECT_EQ(initPrints(), "");
  EXPECT_EQ(ids(), "1 500");
  EXPECT_EQ(at(1).config.text, "nowhere");
  EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 500}}), message());
  EXPECT_EQ(ids(), "1");
}

TEST_F(AMapStore, DoesNotLoseAnObjectOutsideTheRangeToItsOwnRecord) {
  putRecord(500, {{field::text, "stored"}});
  start();
  map->add(makeItem(500, "built-in"), false);
  EXPECT_EQ(initPrints(), "");
  EXPECT_EQ(ids(), "1 500");
  EXPECT_EQ(at(500).config.text, "built-in");
}

TEST_F(AMapStore, EndsTheProcessWhenTheStoreCannotBeReadAndWritesNothing) {
  struct Case {
    const char* what;
    bool listed;  // what is there, before it cannot be read any more
  };
  for (const Case& c : {Case{"listing", false}, Case{"reading", true}}) {
    SCOPED_TRACE(c.what);
    putRecord(1, {{field::text, "stored"}});
    stop();
    kit = std::make_unique<nv::testkit::Kit>(stores);
    if (!c.listed) kit->engine().failReads("the disk does not answer");
    testing::internal::CaptureStdout();
    map = std::make_unique<TestMap>(kit->seen(), "items", 1, 100);
    kit->engine().failReads("the disk does not answer");
    // To a service without this protection the record is empty, and one that it drops.
    map->onCheckRestore = [](Object* obj) {
      return item(obj).config.text.empty() ? nv::failedMsg("no text") : message();
    };
    map->init();
    EXPECT_TRUE(
        testing::internal::GetCapturedStdout().starts_with("store: the disk does not answer\n"));
    EXPECT_EQ(kit->exitStatus(), nv::Looper::kNotStored);
    map->add(makeItem(1, "default"), true);
    stop();
    EXPECT_EQ(stores.get("items", 1).get(field::text), "stored");
  }
}

TEST_F(AMapStore, RestoresManagersOnlyWhereObjectsCanBeManaged) {
  putRecord(1, {{key::managedId, 77}});
  restart();
  EXPECT_EQ(at(1).manager, nv::kNoId);
  ask(cmd::setObj, {{key::objectId, 1}});
  stored();
  EXPECT_FALSE(stores.get("items", 1).has(key::managedId));
}

TEST_F(AMapStore, CallsOfTheServiceMayChangeWhatIsStillToBeRestored) {
  for (const std::uint32_t id : {1u, 2u, 3u, 7u}) putRecord(id);
  start();
  map->onAdded = [&](Object* obj) {
    if (obj->id == 1) map->store->remove(2);
    if (obj->id == 3) map->store->set(5, message{{key::objectId, 5}});
  };
  EXPECT_EQ(initPrints(), "");
  EXPECT_EQ(ids(), "1 3 7");  // where the walk goes on is settled before a record is restored
  map->onAdded = {};
}

// Writes that are put off.

TEST_F(AMapStore, PutsWritesOffUntilTheFlushAndMakesThemAscending) {
  add({{key::objectId, 4}});
  map->setAutoStore(false);
  for (const std::uint32_t id : {9u, 2u, 7u}) add({{key::objectId, id}});
  ask(cmd::removeObj, {{key::objectId, 4}});
  ask(cmd::setObj, {{key::objectId, 7}, {field::isVolatile, true}});
  ask(cmd::setObj, {{key::objectId, 9}, {field::number, 1}});
  EXPECT_EQ(line(), "checkChange 9, objChanged 9, notify 9, undo item changed, reply");
  EXPECT_EQ(stored(), "4");
  EXPECT_EQ(map->pending, (std::set<std::uint32_t>{2, 4, 7, 9}));

  kit->seen().clear();
  map->flushConfig();
  EXPECT_EQ(line(), "store 2, unstore 4, unstore 7, store 9");
  EXPECT_EQ(kit->seen().storeOps[3].record->get(field::number), 1u);
  EXPECT_TRUE(map->pending.empty());
  EXPECT_FALSE(map->autoStore);
  map->flushConfig();
  EXPECT_EQ(stored(), "2 9");
}

TEST_F(AMapStore, DecidesAtTheFlushWhatBecomesOfARecord) {
  map->setAutoStore(false);
  add();
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(map->pending.size(), 1u);
  add();  // under the same id
  add();
  at(2).config.isVolatile = true;  // without a word to the map
  kit->seen().clear();
  map->flushConfig();
  EXPECT_EQ(line(), "store 1, unstore 2");
}

TEST_F(AMapStore, FlushesWheneverWritingAtOnceIsTurnedOn) {
  map->setAutoStore(false);
  add();
  EXPECT_EQ(stored(), "");
  kit->seen().clear();
  map->setAutoStore(true);
  EXPECT_EQ(line(), "store 1");
  map->setAutoStore(true);
  EXPECT_EQ(line(), "store 1");
  EXPECT_EQ(add(), 2u);
  EXPECT_EQ(stored(), "1 2");
}

TEST_F(AMapStore, LosesWhatWasNotFlushed) {
  add({{field::number, 1}});
  map->setAutoStore(false);
  ask(cmd::setObj, {{key::objectId, 1}, {field::number, 2}});
  add();
  kit->seen().clear();
  map.reset();
  EXPECT_EQ(line(), "");
  restart();
  EXPECT_EQ(ids(), "1");
  EXPECT_EQ(at(1).config.number, 1u);
}

TEST_F(AMapStore, KeepsForTheNextFlushWhatElementsPutOffDuringOne) {
  map->setAutoStore(false);
  add();
  add();
  Element::onGet = [&](Object& obj, message&, std::uint32_t flags) {
    if (obj.id == 2 && (flags & nv::kStoreBit) != 0) map->storeObj(map->find(1).get());
  };
  kit->seen().clear();
  map->flushConfig();
  EXPECT_EQ(line(), "store 1, store 2");
  EXPECT_EQ(map->pending, std::set<std::uint32_t>{1});
}

// Without a store, and the end.

TEST_F(AMapStore, IsNotNeeded) {
  start("");
  EXPECT_EQ(map->store, nullptr);
  map->init();
  map->setAutoStore(false);
  add();
  ask(cmd::setObj, {{key::objectId, 1}, {field::isVolatile, true}});
  map->flushConfig();
  map->setAutoStore(true);
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(line(), "checkRemove 1, objRemoved 1, notify 1, reply");
  EXPECT_TRUE(map->pending.empty());
}

TEST_F(AMapStore, IsClosedBeforeTheElementsAreDeletedWhoMayStillAsk) {
  add();
  add();
  int asked = 0;
  AMap* const dying = map.get();
  Element::onDelete = [&](Object&) {
    ++asked;
    EXPECT_EQ(dying->store, nullptr);
    EXPECT_TRUE(dying->begin() == dying->end());
    dying->removeObj(1);
    dying->flushConfig();
  };
  map.reset();
  EXPECT_EQ(asked, 2);
  Element::onDelete = {};
  EXPECT_EQ(stored(), "1 2");
}

}  // namespace
