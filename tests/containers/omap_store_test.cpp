// An ordered map and its store: the chain, how it comes back, damage, and writes that are put off.
#include "tests/support/captured_output.h"
#include "tests/support/map_fixture.h"

using namespace test;

namespace {

class AOmapStore : public AOmapTest {
 protected:
  void putLink(std::uint32_t id, std::uint32_t next, std::uint32_t number = 0) {
    putRecord(id, {{key::nextId, next}, {field::number, number}});
  }
  void putHead(const message& record) { stores.set("items", kHead, record); }
  std::string unused(int n) {
    return "AOmap::init warning: store has " + std::to_string(n) + " unused objects\n";
  }
};

TEST_F(AOmapStore, ReadsOlderLayoutsAndRewritesThem) {
  struct Case {
    std::optional<message> head;
    const char *order, *chain, *stores;
    int unused;
  };
  const auto list = [](const std::vector<std::uint32_t>& ids) {
    message head;
    head.insert(nv::u32_array_id(1), ids);
    return head;
  };
  const char *const ascending = "2 5 8", *const all = "2 5 8 4294967294";
  const Case cases[] = {
      {std::nullopt, ascending, "head>2 2>5 5>8 8>end", all, 0},
      {message{{nv::u32_id(1), 5}}, ascending, "head>2 2>5 5>8 8>end", all, 0},
      {list({8, 2, 5}), "8 2 5", "head>8 8>2 2>5 5>end", all, 0},
      {list({8, 8, kHead, 5, kEnd, 8, 5}), "8 5", "head>8 8>5 5>end", "5 8 4294967294", 1},
      // 9 has no record: made of defaults
      {list({5, 9}), "5 9", "head>5 5>9 9>end", "5 9 4294967294", 2},
      {list({}), "", "head>0", "", -1},  // nothing is restored, nothing is written
  };
  for (const Case& c : cases) {
    stop();
    stores.clear();
    // What the records name is no chain yet.
    for (const std::uint32_t id : {2u, 5u, 8u}) putLink(id, 2, id);
    if (c.head) putHead(*c.head);
    start();
    EXPECT_EQ(initPrints(), c.unused > 0 ? unused(c.unused) : "");
    EXPECT_EQ(order(), c.order);
    EXPECT_EQ(chain(), c.chain);
    std::vector<std::uint32_t> written;
    for (const auto& op : kit->seen().storeOps) written.push_back(op.id);
    EXPECT_EQ(joined(written), c.stores);
    for (const auto& [id, obj] : map->objects) EXPECT_EQ(item(obj).config.number, id == 9 ? 0 : id);
    if (c.unused < 0) continue;
    restart();
    EXPECT_EQ(order(), c.order);
  }
}

TEST_F(AOmapStore, SurvivesDamagedChains) {
  struct Case {
    const char* what;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> records;  // id, next
    const char* order;
    const char* prints;
  };
  const char* const refusal = "AOmap::init error:is four\n";
  const std::string one = unused(1), two = unused(2), minus = unused(-1);
  const std::string refusedOne = refusal + one, refusedTwo = refusal + two;
  const Case cases[] = {
      {"leads back", {{kHead, 1}, {1, 2}, {2, 1}, {3, kEnd}}, "1 2", one.c_str()},
      {"names itself", {{kHead, 1}, {1, 1}, {3, kEnd}}, "1", one.c_str()},
      {"names the head", {{kHead, 1}, {1, 2}, {2, kHead}}, "1 2", ""},
      {"begins with the head", {{kHead, kHead}, {1, kEnd}}, "", ""},
      {"leads back through a refused id", {{kHead, 1}, {1, 4}, {4, 1}}, "1", refusedOne.c_str()},
      {"a refused id names itself", {{kHead, 4}, {4, 4}, {1, kEnd}}, "", refusal},
      {"goes on behind a refused id", {{kHead, 4}, {4, 2}, {2, kEnd}}, "2", refusedOne.c_str()},
      {"refused ids lead back", {{kHead, 1}, {1, 4}, {4, 4}, {2, 1}}, "1", refusedTwo.c_str()},
      {"an id without a record ends it", {{kHead, 1}, {1, 9}, {2, kEnd}}, "1 9", ""},
      {"begins with no record", {{kHead, 9}}, "9", minus.c_str()},
      {"an id outside the range", {{kHead, 500}, {500, 2}, {2, kEnd}}, "500 2", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    stop();
    stores.clear();
    for (const auto& [id, next] : c.records) putLink(id, next);
    start();
    map->onCheckRestore = [](OObject* obj) {
      return obj->id == 4 ? nv::errorMsg(0xfe0004, "is four") : message();
    };
    EXPECT_EQ(initPrints(), c.prints);
    EXPECT_EQ(order(), c.order);
    EXPECT_FALSE(map->ids.isAllocated(4));
    EXPECT_EQ(Element::alive, static_cast<int>(map->objects.size()));
    kit->settle();
    EXPECT_EQ(stores.records("items").size(), c.records.size());  // none was removed
    EXPECT_EQ(kit->seen().storeOps.size(), 0u);
  }
}

TEST_F(AOmapStore, RestoresNoObjectUnderAnIdThatABuiltInHas) {
  putLink(kHead, 1);
  putLink(1, 2);
  putLink(2, 3, 12);
  putLink(3, kEnd);
  for (const bool isChain : {true, false}) {
    if (!isChain) putHead({});
    start();
    put(2, {.isVolatile = true});
    initPrints();
    EXPECT_EQ(order(), "2 1 3");
    EXPECT_EQ(at(2).config.number, 0u);
  }
}

TEST_F(AOmapStore, TheIdOfTheHeadIsNoObjects) {
  start("items", 0, 0xffffffff);
  EXPECT_EQ(add({{key::objectId, kHead - 1}}), kHead - 1);
  EXPECT_EQ(ask(cmd::addObj, {{key::objectId, kHead}}), refused(err::noSuchObject));
  restart();
  EXPECT_EQ(chain(), "head>4294967293 4294967293>end");
}

TEST_F(AOmapStore, LosesNothingBehindARecordThatBecameNoObject) {
  bool putOff = false;
  const auto first = [&](std::initializer_list<std::uint32_t> chainIds) {
    stop();
    stores.clear();
    std::uint32_t before = kHead;
    for (const auto id : chainIds) {
      putLink(before, id);
      before = id;
    }
    putLink(before, kEnd);
    start();
    map->setAutoStore(!putOff);
  };
  const auto again = [&](const char* ids) {
    map->setAutoStore(true);
    EXPECT_EQ(order(), ids);
    restart();
    EXPECT_EQ(order(), ids);
  };
  for (const bool when : {false, true}) {
    putOff = when;
    first({1, 2});
    map->onCheckRestore = [](OObject* obj) {
      return obj->id == 1 ? nv::errorMsg(0xfe0004, "is one") : message();
    };
    initPrints();
    EXPECT_EQ(chain(), "head>1 1>2 2>end") << "it may be taken at another start";
    EXPECT_EQ(add(), 1u);
    again("2 1");

    first({5, 1, 7});
    put(1, {.isVolatile = true});
    initPrints();
    drop(1);
    again("5 7");

    first({5, 1, 7});
    put(1, {.isVolatile = true});
    initPrints();
    ask(cmd::setObj, {{key::objectId, 1}, {field::isVolatile, false}});
    again("1 5 7");

    first({1, 5, 7});
    map->onAdded = [&](OObject*) {
      map->onAdded = nullptr;
      put(5);
    };
    initPrints();
    again("1 5 7");
  }
}

TEST_F(AOmapStore, IsNotCutByAServiceThatFlushesWhileItIsRestored) {
  addAll({3, 1, 2});
  for (int i = 0; i < 2; ++i) {
    start();
    map->onAdded = [&](OObject* obj) {
      map->setAutoStore(false);
      map->changed(obj, true);
      map->setAutoStore(true);
    };
    EXPECT_EQ(initPrints(), "");
    EXPECT_EQ(order(), "3 1 2");
    EXPECT_TRUE(map->pending.empty());
    EXPECT_EQ(chain(), "head>3 3>1 1>2 2>end");
  }
}

// Writes.

TEST_F(AOmapStore, KeepsTheChainWhenElementsChangeTheOrderWhileTheyAreWritten) {
  for (const bool putOff : {false, true}) {
    startAnew();
    addAll({1, 2, 3});
    put(4, {.isVolatile = true});
    addAll({5});
    map->setAutoStore(!putOff);
    bool isFirst = true;
    Element::onGet = [&](Object& obj, message&, std::uint32_t flags) {
      if (obj.id != 3 || (flags & nv::kStoreBit) == 0 || !std::exchange(isFirst, false)) return;
      drop(1);  // who stood before 2 which is moved
      map->move(&at(5), map->getNextObj(&at(3)));
      map->move(&at(2), nullptr);
    };
    ask(cmd::moveObj, {{key::objectId, 2}, {key::nextId, 4}});
    map->setAutoStore(true);
    map->setAutoStore(true);
    EXPECT_EQ(order(), "3 5 4 2");
    EXPECT_EQ(chain(), "head>3 3>5 5>2 2>end");
    Element::onGet = {};
  }
}

TEST_F(AOmapStore, ForgetsWhoIsNextWhenTheOrderChangesDuringAFlush) {
  addAll({4, 1, 2, 3});
  add({{key::objectId, 9}, {field::isVolatile, true}, {key::nextId, 2}});
  map->setAutoStore(false);
  map->changed(&at(1), true);
  map->changed(&at(4), true);
  bool isFirst = true;
  Element::onGet = [&](Object& obj, message&, std::uint32_t) {
    if (obj.id != 1 || !std::exchange(isFirst, false)) return;
    map->move(&at(1), nullptr);
    map->move(&at(2), nullptr);
  };
  map->setAutoStore(true);
  Element::onGet = {};
  EXPECT_EQ(order(), "4 9 3 1 2");
  EXPECT_EQ(chain(), "head>4 4>3 3>1 1>2 2>end");
}

TEST_F(AOmapStore, KeepsEveryRecordWhenABatchIsCutAfterAnyOfItsWrites) {
  std::set<std::string> orders;
  bool isCut = true;
  for (unsigned k = 0; isCut; ++k) {
    SCOPED_TRACE(k);
    startAnew();
    addAll({1, 2, 3, 4, 5, 6});
    kit->settle();
    kit->engine().cutAfter(k);
    map->setAutoStore(false);
    ask(cmd::moveObj, {{key::objectId, 6}, {key::nextId, 2}});
    add({{key::objectId, 9}, {key::nextId, 4}});
    ask(cmd::removeObj, {{key::objectId, 3}});
    ask(cmd::setObj, {{key::objectId, 5}, {field::isVolatile, true}});
    add({{key::objectId, 8}});
    map->setAutoStore(true);
    EXPECT_EQ(order(), "1 6 2 9 4 5 8");
    {
      CapturedOutput output;
      kit->settle();
      isCut = kit->exitStatus().has_value();
      stop();
    }

    const auto records = stores.records("items");
    start();
    const std::string printed = initPrints();
    EXPECT_TRUE(kit->seen().storeOps.empty());
    const int n = static_cast<int>(records.size()) - static_cast<int>(map->objects.size()) - 1;
    EXPECT_EQ(printed, n == 0 || map->objects.empty() ? "" : unused(n));
    kit->settle();
    EXPECT_EQ(stores.records("items"), records);
    orders.insert(order());
  }
  EXPECT_EQ(order(), "1 6 2 9 4 8");
  EXPECT_GE(orders.size(), 4u);  // the cuts were where it hurts
}

}  // namespace
