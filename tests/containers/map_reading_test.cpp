// What object maps tell of their objects: one, all by pages, their number.
#include "tests/support/map_fixture.h"

using namespace test;

namespace {

template <class Container>
using MapReading = EachMapTest<Container>;
TYPED_TEST_SUITE(MapReading, Maps);

TYPED_TEST(MapReading, TheStoreBitReachesElementsFromTheMapAlone) {
  this->add();
  Element::writesFlags = true;
  const auto ofOne = [&](Fields fields) { return this->ask(cmd::getObj, fields); };
  EXPECT_EQ(ofOne({{key::objectId, 1}}).get(field::flags), 5u);
  EXPECT_EQ(ofOne({{key::objectId, 1}, {key::getFlags, 0}}).get(field::flags), 0u);
  const message one = ofOne({{key::objectId, 1}, {key::getFlags, 0xa0000007}});
  EXPECT_EQ(one.get(field::flags), 0x20000007u);
  EXPECT_FALSE(one.has(key::defaultCfg));

  const int made = Element::made;
  const message page = this->ask(cmd::getAll, {{key::getFlags, 0xa0000007}});
  EXPECT_EQ(Element::made, made + 1);
  EXPECT_EQ(message(page.get(key::objects)[0]).get(field::flags), 0x20000007u);
  EXPECT_EQ(message(page.get(key::defaultCfg)), configured({}, {{field::flags, 5}}));
  EXPECT_FALSE(this->ask(cmd::getAll, {{key::getFlags, 0xdfffffff}}).has(key::defaultCfg));
  EXPECT_EQ(this->page({{key::startId, 3}, {key::getFlags, 0x20000005}}), "none");
  EXPECT_EQ(Element::made, made + 1);

  EXPECT_EQ(this->map->getObject(1, 0xffffffff).get(field::flags), 0xffffffff);
  this->map->changed(&this->at(1), true);
  EXPECT_EQ(this->kit->seen().storeOps.back().record->get(field::flags), 0x80000005);
}

TYPED_TEST(MapReading, PagesSayWhereTheNextOneBegins) {
  EXPECT_EQ(this->page(), "");
  EXPECT_EQ(this->page({{key::maxCount, 0}}), "");
  this->addAll({2, 5, 8});
  EXPECT_EQ(this->page({{key::startId, nv::kNoId}}), "2 5 8");
  EXPECT_EQ(this->page({{key::startId, 5}}), "5 8");
  EXPECT_EQ(this->page({{key::maxCount, 2}}), "2 5 next 8");
  EXPECT_EQ(this->page({{key::startId, 8}, {key::maxCount, 1}}), "8");
  EXPECT_EQ(this->page({{key::startId, 5}, {key::maxCount, 0}}), " next 5");
  for (const std::uint32_t nobody : {0u, 3u, 0xfffffffeu})
    EXPECT_EQ(this->page({{key::startId, nobody}}), "none");
  EXPECT_EQ(this->ask(cmd::getCount), message({{key::count, 3}}));
  const unsigned move = this->isOrdered ? cmd::get : cmd::moveObj;
  for (const unsigned code : {move, cmd::get, cmd::set, 0u, 0xfe0001u, 0xffffffffu})
    EXPECT_EQ(this->ask(code, {{key::objectId, 2}}), refused(err::badCommand)) << code;
}

TYPED_TEST(MapReading, PagesHoldAtMost16384BytesButAlwaysOneObject) {
  for (int i = 0; i < 5; ++i) this->add();
  padTo(4096);
  EXPECT_EQ(this->page(), "1 2 3 4 next 5");
  padTo(4096, 4);
  EXPECT_EQ(this->page(), "1 2 3 next 4");
  padTo(100000);
  EXPECT_EQ(this->page(), "1 next 2");
  EXPECT_EQ(this->page({{key::startId, 5}}), "5");
}

TYPED_TEST(MapReading, PagesHoldAtMostAThousandObjects) {
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
