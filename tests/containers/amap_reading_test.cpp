// What an object map tells of its objects: one, all by pages, their number.
#include <vector>

#include "tests/support/amap_fixture.h"

using namespace test;
namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::message;

namespace {

using AMapReading = AMapTest;

TEST_F(AMapReading, GetOneEndsWithTheIdAndOthersBeginWithIt) {
  map->managed = true;
  add({{key::objectId, 7}, {key::managedId, 9}});
  EXPECT_EQ(ask(cmd::getObj, {{key::objectId, 7}}),
            configured({}, {{key::objectId, 7}, {key::managedId, 9}}));

  Element::onGet = [](Object&, message& out, std::uint32_t) {
    out.insert(key::objectId, 70).insert(key::managedId, 90);
  };
  const message own = configured({}, {{key::objectId, 70}, {key::managedId, 90}});
  EXPECT_EQ(ask(cmd::getObj, {{key::objectId, 7}}),
            configured({}, {{key::objectId, 7}, {key::managedId, 90}}));
  EXPECT_EQ(map->getObject(7, 5), own);
  EXPECT_EQ(message(ask(cmd::getAll).get(key::objects)[0]), own);
  map->changed(map->find(7).get(), true);
  EXPECT_EQ(kit->seen().storeOps[0].record, own);
}

TEST_F(AMapReading, GetObjectOfNobodySaysThatItIsAbsent) {
  EXPECT_EQ(map->getObject(7, 5), message({{key::objectId, 7}, {key::absent, 1}}));
}

TEST_F(AMapReading, TheStoreBitReachesElementsFromTheMapAlone) {
  add();
  Element::writesFlags = true;
  std::vector<std::uint32_t> defaults;
  const auto flagsOfOne = [&](Fields fields) { return ask(cmd::getObj, fields).get(field::flags); };
  EXPECT_EQ(flagsOfOne({{key::objectId, 1}}), 5u);
  EXPECT_EQ(flagsOfOne({{key::objectId, 1}, {key::getFlags, 0}}), 0u);
  EXPECT_EQ(flagsOfOne({{key::objectId, 1}, {key::getFlags, 0xffffffff}}), 0x7fffffffu);
  EXPECT_FALSE(
      ask(cmd::getObj, {{key::objectId, 1}, {key::getFlags, 0xa0000005}}).has(key::defaultCfg));

  const message page = ask(cmd::getAll, {{key::getFlags, 0xa0000005}});
  EXPECT_EQ(message(page.get(key::objects)[0]).get(field::flags), 0x20000005u);
  EXPECT_EQ(message(page.get(key::defaultCfg)).get(field::flags), 5u);
  EXPECT_FALSE(ask(cmd::getAll, {{key::getFlags, 0xdfffffff}}).has(key::defaultCfg));

  EXPECT_EQ(map->getObject(1, 0xffffffff).get(field::flags), 0xffffffff);
  map->changed(map->find(1).get(), true);
  EXPECT_EQ(kit->seen().storeOps.back().record->get(field::flags), 0x80000005);
}

TEST_F(AMapReading, TheDefaultConfigurationIsThatOfOneNewElement) {
  add({{field::number, 4}});
  const int made = Element::made;
  EXPECT_EQ(map->getDefaultCfg(), configured({}));
  EXPECT_EQ(Element::made, made + 1);
  EXPECT_EQ(Element::alive, 1);
}

TEST_F(AMapReading, CountIsTheNumberOfObjectsAndOtherCommandsAreNotTaken) {
  add();
  add();
  EXPECT_EQ(ask(cmd::getCount), message({{key::count, 2}}));
  for (const unsigned code : {cmd::moveObj, cmd::get, cmd::set, 0u, 0xfe0001u, 0xffffffffu})
    EXPECT_EQ(ask(code, {{key::objectId, 1}}), refused(err::badCommand)) << code;
  EXPECT_EQ(ids(), "1 2");
}

// Get all.

using AMapPages = AMapTest;

TEST_F(AMapPages, BeginWithTheStartObjectAndSayWhereTheNextOneBegins) {
  EXPECT_EQ(page({}), "");
  EXPECT_EQ(page({{key::maxCount, 0}}), "");
  for (const std::uint32_t id : {8u, 2u, 5u}) add({{key::objectId, id}});
  EXPECT_EQ(page({}), "2 5 8");
  EXPECT_EQ(page({{key::startId, nv::kNoId}}), "2 5 8");
  EXPECT_EQ(page({{key::startId, 5}}), "5 8");
  EXPECT_EQ(page({{key::maxCount, 2}}), "2 5 next 8");
  EXPECT_EQ(page({{key::startId, 5}, {key::maxCount, 1}}), "5 next 8");
  EXPECT_EQ(page({{key::startId, 8}, {key::maxCount, 1}}), "8");
  EXPECT_EQ(page({{key::maxCount, 0}}), " next 2");
  EXPECT_EQ(page({{key::startId, 5}, {key::maxCount, 0}}), " next 5");
  EXPECT_EQ(page({{key::startId, 3}}), "none");
  EXPECT_EQ(page({{key::startId, 0}}), "none");
}

TEST_F(AMapPages, OfAnUnknownStartDoNothingElse) {
  const int made = Element::made;
  EXPECT_EQ(page({{key::startId, 3}, {key::getFlags, 0x20000005}}), "none");
  EXPECT_EQ(Element::made, made);
}

TEST_F(AMapPages, HoldAtMostAThousandObjects) {
  start("", 1, 5000);
  for (std::uint32_t id = 1; id <= 1001; ++id) map->add(makeItem(id), false);
  // Entries without a byte: the limit in bytes is never reached.
  Element::onGet = [](Object&, message& out, std::uint32_t) { out.clear(); };
  const message first = ask(cmd::getAll, {{key::maxCount, 5000}});
  EXPECT_EQ(first.size(key::objects), 1000u);
  EXPECT_EQ(first.get(key::startId), 1001u);
  const message all = ask(cmd::getAll, {{key::startId, 2}});
  EXPECT_EQ(all.size(key::objects), 1000u);
  EXPECT_FALSE(all.has(key::startId));
}

TEST_F(AMapPages, HoldAtMost16384BytesButAlwaysOneObject) {
  for (int i = 0; i < 5; ++i) add();
  padTo(4096);
  EXPECT_EQ(page({}), "1 2 3 4 next 5");
  padTo(4100);
  EXPECT_EQ(page({}), "1 2 3 next 4");
  padTo(16384);
  EXPECT_EQ(page({}), "1 next 2");
  padTo(100000);
  EXPECT_EQ(page({}), "1 next 2");
  EXPECT_EQ(page({{key::startId, 5}}), "5");
}

TEST_F(AMapPages, HoldTheWholeEntries) {
  map->managed = true;
  add({{field::text, "lamp"}});
  add({{key::managedId, 9}, {field::number, 4}});
  const auto entries = ask(cmd::getAll).get(key::objects);
  EXPECT_EQ(message(entries[0]), configured({.text = "lamp"}, {{key::objectId, 1}}));
  EXPECT_EQ(message(entries[1]),
            configured({.number = 4}, {{key::objectId, 2}, {key::managedId, 9}}));
}

}  // namespace
