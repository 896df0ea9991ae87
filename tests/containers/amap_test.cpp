// The way back of an object map without an order from its store.
#include "tests/support/map_fixture.h"

using namespace test;

namespace {

using AMapStore = AMapTest;

TEST_F(AMapStore, GivesAnotherIdToARecordWhoseIdIsTakenOrNone) {
  const struct {
    const char* what;
    std::uint32_t record, builtIn, maxId;
    bool refuses;
    const char *line, *order, *stored;
  } cases[] = {
      {"is taken", 1, 1, 100, false, "checkRestore 2, objAdded 2", "1 2", "1"},
      {"is taken, none is free", 1, 1, 1, false, "", "1", "1"},
      {"is taken outside the range", 500, 500, 100, false, "checkRestore 1, objAdded 1", "1 500",
       "500"},
      {"is free outside the range", 500, 1, 100, false, "checkRestore 500, objAdded 500", "1 500",
       "500"},
      {"is none", nv::kNoId, 1, 100, false, "checkRestore 2, objAdded 2", "1 2", "4294967295"},
      // Then the id goes that it got, and the record that was read.
      {"is taken, is refused", 1, 1, 100, true, "checkRestore 2, unstore 1", "1", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    stop();
    stores.clear();
    putRecord(c.record, {{field::text, "stored"}});
    start("items", 1, c.maxId);
    map->add(make(c.builtIn, {.text = "built-in"}), false);
    map->onCheckRestore = [&](Object*) { return c.refuses ? nv::failedMsg("no") : message(); };
    kit->seen().clear();
    initPrints();
    EXPECT_EQ(line(), c.line);
    EXPECT_EQ(order(), c.order);
    for (const auto& [id, obj] : map->objects)
      EXPECT_EQ(item(obj).config.text, id == c.builtIn ? "built-in" : "stored");
    EXPECT_EQ(stored(), c.stored);
    EXPECT_EQ(Element::alive, static_cast<int>(map->objects.size()));
    if (!map->objects.contains(500)) continue;
    EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 500}}), message());
    EXPECT_EQ(order(), "1");
  }
}

TEST_F(AMapStore, EndsTheProcessWhenTheStoreCannotBeReadAndWritesNothing) {
  for (const bool listed : {false, true}) {  // what is there, before it cannot be read any more
    SCOPED_TRACE(listed ? "reading" : "listing");
    putRecord(1, {{field::text, "stored"}});
    stop();
    kit = std::make_unique<nv::testkit::Kit>(stores);
    if (!listed) kit->engine().failReads("the disk does not answer");
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
    put(1, {.text = "default"});
    stop();
    EXPECT_EQ(stores.get("items", 1).get(field::text), "stored");
  }
}

TEST_F(AMapStore, CallsOfTheServiceMayChangeWhatIsStillToBeRestored) {
  for (const std::uint32_t id : {1u, 2u, 3u, 7u}) putRecord(id);
  start();
  map->onAdded = [&](Object* obj) {
    if (obj->id == 1) map->store->remove(2);
    if (obj->id == 3) map->store->set(5, message{{key::objectId, 5}});
    if (obj->id == 7) map->store->set(8, message{{key::objectId, 8}});
  };
  EXPECT_EQ(initPrints(), "");
  EXPECT_EQ(order(), "1 3 7");  // where the walk goes on is settled before a record is restored
  map->onAdded = {};
}

}  // namespace
