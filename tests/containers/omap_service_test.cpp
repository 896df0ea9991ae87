// What an ordered map tells of its objects, what the service itself does to it, and hooks that call
// back into it.
#include <vector>

#include "tests/support/omap_fixture.h"

using namespace test;
namespace cmd = nv::cmd;
namespace err = nv::err;
namespace key = nv::key;
using nv::message;

namespace {

// Reading.

using AOmapReading = AOmapTest;

TEST_F(AOmapReading, GetOneTellsWhoIsNextAndNoIdAndPagesTheOpposite) {
  addAll({7, 3});
  EXPECT_EQ(ask(cmd::getObj, {{key::objectId, 7}}), configured({}, {{key::nextId, 3}}));
  EXPECT_EQ(ask(cmd::getObj, {{key::objectId, 3}}), configured({}, {{key::nextId, nv::kNoId}}));
  EXPECT_EQ(map->getObject(7, 5), configured({}, {{key::objectId, 7}, {key::nextId, 3}}));
  EXPECT_EQ(map->getObject(8, 5), message({{key::objectId, 8}, {key::absent, 1}}));
  EXPECT_EQ(message(ask(cmd::getAll).get(key::objects)[0]), configured({}, {{key::objectId, 7}}));
  EXPECT_EQ(ask(cmd::getCount), message({{key::count, 2}}));
  EXPECT_EQ(ask(cmd::get), refused(err::badCommand));
}

TEST_F(AOmapReading, TheStoreBitReachesElementsFromTheMapAlone) {
  add();
  Element::writesFlags = true;
  const auto ofOne = [&](Fields fields) { return ask(cmd::getObj, fields); };
  EXPECT_EQ(ofOne({{key::objectId, 1}}).get(field::flags), 5u);
  const message one = ofOne({{key::objectId, 1}, {key::getFlags, 0xa0000007}});
  EXPECT_EQ(one.get(field::flags), 0x20000007u);
  EXPECT_FALSE(one.has(key::defaultCfg));

  const int made = Element::made;
  const message page = ask(cmd::getAll, {{key::getFlags, 0xa0000007}});
  EXPECT_EQ(Element::made, made + 1);
  EXPECT_EQ(message(page.get(key::objects)[0]).get(field::flags), 0x20000007u);
  EXPECT_EQ(message(page.get(key::defaultCfg)).get(field::flags), 5u);
  EXPECT_EQ(map->getObject(1, 0xffffffff).get(field::flags), 0xffffffff);
  map->changed(&at(1), true);
  EXPECT_EQ(kit->seen().storeOps.back().record->get(field::flags), 0x80000005);
}

TEST_F(AOmapReading, PagesFollowTheOrderAndSayWhereTheNextOneBegins) {
  EXPECT_EQ(page(), "");
  addAll({8, 2, 5});
  EXPECT_EQ(page(), "8 2 5");
  EXPECT_EQ(page({{key::startId, 2}}), "2 5");
  EXPECT_EQ(page({{key::maxCount, 2}}), "8 2 next 5");
  EXPECT_EQ(page({{key::startId, 5}, {key::maxCount, 1}}), "5");
  EXPECT_EQ(page({{key::maxCount, 0}}), " next 8");
  EXPECT_EQ(page({{key::startId, 0}}), "none");
  EXPECT_EQ(page({{key::startId, 0xfffffffe}}), "none");
  padTo(8192);
  EXPECT_EQ(page(), "8 2 next 5");
  padTo(8196);
  EXPECT_EQ(page(), "8 next 2");
  padTo(100000);
  EXPECT_EQ(page({{key::startId, 2}}), "2 next 5");
  EXPECT_EQ(page({{key::startId, 5}}), "5");
}

TEST_F(AOmapReading, PagesHoldAtMostAThousandObjects) {
  start("", 1, 5000);
  for (std::uint32_t id = 1001; id >= 1; --id) map->add(makeOItem(id), nullptr);
  // Entries without a byte: the limit in bytes is never reached.
  Element::onGet = [](Object&, message& out, std::uint32_t) { out.clear(); };
  const message first = ask(cmd::getAll, {{key::maxCount, 5000}});
  EXPECT_EQ(first.size(key::objects), 1000u);
  EXPECT_EQ(first.get(key::startId), 1u);
}

// Changes by the service.

using AOmapService = AOmapTest;

TEST_F(AOmapService, AddsMovesChangesAndRemovesWithoutHooksOrUndo) {
  OObject* const one = map->add(makeOItem(nv::kNoId), nullptr).get();
  EXPECT_EQ(one->id, 1u);
  OObject* const far = map->add(makeOItem(300), one).get();  // no range is asked
  OObject* const loose = map->add(makeOItem(5, {.isVolatile = true}), one).get();
  OObject* const quiet = map->add(makeOItem(6, {.isSilent = true}), nullptr).get();
  EXPECT_EQ(line(),
            "store 1, store 4294967294, notify 1, store 300, store 4294967294, notify 300, notify "
            "5, store 6, store 1");
  EXPECT_EQ(order(), "300 5 1 6");

  const std::vector<std::pair<std::function<void()>, const char*>> steps = {
      {[&] { map->move(loose, one); }, ""},  // it stands there
      {[&] { map->move(quiet, nullptr); }, ""},
      {[&] { map->move(loose, far); }, "notify 5"},
      {[&] { map->move(one, nullptr); }, "store 1, store 6, store 300, notify 1"},
      {[&] { map->move(quiet, loose); }, "store 6, store 4294967294, store 300"},
      {[&] { map->changed(one, true); }, "store 1, notify 1"},
      {[&] { map->changed(one, false); }, "notify 1"},
      {[&] { map->changed(loose, true); }, "notify 5"},
      {[&] { map->changed(quiet, true); }, "store 6"},
      {[&] { map->remove(map->find(5)); }, "notify 5"},
      {[&] { map->remove(map->find(6)); }, "unstore 6, store 4294967294"},
      {[&] { map->remove(map->find(1)); }, "unstore 1, store 300, notify 1"},
  };
  for (const auto& [step, expected] : steps) {
    kit->seen().clear();
    step();
    EXPECT_EQ(line(), expected);
    EXPECT_TRUE(verify(*map));
  }
  EXPECT_EQ(chain(), "head>300 300>end");
}

TEST_F(AOmapService, RemovesTheRecordThenWritesTheChainThenFreesTheId) {
  addAll({1, 2});
  map->onFree = [&](std::uint32_t) { kit->seen().log.emplace_back("free"); };
  Element::onDelete = [&](Object&) { kit->seen().log.emplace_back("delete"); };
  kit->seen().clear();
  map->remove(map->find(2));
  EXPECT_EQ(line(), "unstore 2, store 1, free, notify 2, delete");
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(line(),
            "checkRemove 1>end, free, unstore 1, store 4294967294, objRemoved 1, delete, notify "
            "1, undo item removed, reply");
}

TEST_F(AOmapService, WalksTheOrderBothWays) {
  EXPECT_EQ(map->getNextObj(nullptr), nullptr);
  EXPECT_EQ(map->getPrevObj(nullptr), nullptr);
  EXPECT_EQ(map->findNextStorable(nullptr), &map->head);
  addAll({9, 3});
  OObject* const loose = map->add(makeOItem(6, {.isVolatile = true}), &at(9)).get();
  EXPECT_EQ(map->getNextObj(nullptr), loose);
  EXPECT_EQ(map->getPrevObj(loose), nullptr);
  EXPECT_EQ(map->getNextObj(&at(3)), nullptr);
  EXPECT_EQ(map->getPrevObj(nullptr), &at(3));
  EXPECT_EQ(map->findPrevStorable(&at(9)), &map->head);
  EXPECT_EQ(map->findNextStorable(nullptr), &at(9));
  EXPECT_EQ(map->findPrevStorable(nullptr), &at(3));
  message m;
  map->addNextId(m, nullptr);
  EXPECT_EQ(m.get(key::nextId), 6u);
  map->addNextStorableId(m, &map->head);
  EXPECT_EQ(m.get(key::nextId), 9u);
  map->addNextStorableId(m, &at(3));
  EXPECT_EQ(m.get(key::nextId), nv::kNoId);
}

TEST_F(AOmapService, LosesAnObjectForWhichNoIdIsFree) {
  start("items", 1, 1);
  map->add(makeOItem(nv::kNoId), nullptr);
  EXPECT_TRUE(map->add(makeOItem(nv::kNoId), nullptr) == map->end());
  EXPECT_EQ(order(), "1");
  EXPECT_EQ(Element::alive, 1);
}

// Hooks that call back.

using AOmapHooks = AOmapTest;

TEST_F(AOmapHooks, MayTakeTheTargetAwayWhichLeavesTheEnd) {
  const auto drop = [&] { map->remove(map->find(2)); };
  struct Case {
    unsigned code;
    std::uint32_t id;
    const char* order;
  };
  for (const Case& c : {Case{cmd::addObj, 9, "1 3 9"}, Case{cmd::moveObj, 1, "3 1"}}) {
    startAnew();
    addAll({1, 2, 3});
    map->onCheckAdd = [&](OObject*, OObject*) { return drop(), message(); };
    map->onCheckMove = [&](OObject*, OObject*, OObject*) { return drop(), message(); };
    EXPECT_FALSE(nv::isError(ask(c.code, {{key::objectId, c.id}, {key::nextId, 2}})));
    EXPECT_EQ(order(), c.order);
    const std::string before = order();
    restart();
    EXPECT_EQ(order(), before);
  }
  // Or before the check, which is then told so.
  startAnew();
  addAll({1, 2});
  Element::onSet = [&](Object&, const message&, std::uint32_t) { drop(); };
  ask(cmd::addObj, {{key::objectId, 9}, {key::nextId, 2}});
  EXPECT_TRUE(line().find("checkAdd 9>end") != std::string::npos) << line();
  Element::onSet = {};
}

TEST_F(AOmapHooks, MayMoveTheTargetWhichIsFollowed) {
  addAll({1, 2, 3});
  map->onCheckMove = [&](OObject*, OObject*, OObject* to) {
    return map->move(to, nullptr), message();
  };
  ask(cmd::moveObj, {{key::objectId, 3}, {key::nextId, 1}});
  EXPECT_EQ(order(), "2 3 1");
  EXPECT_EQ(chain(), "head>2 2>3 3>1 1>end");
}

TEST_F(AOmapHooks, MayAddMoveAndRemoveOthers) {
  addAll({50, 51, 52});
  map->onCheckAdd = [&](OObject*, OObject*) {
    map->add(makeOItem(nv::kNoId), &at(51));
    return message();
  };
  map->onAdded = [&](OObject*) { map->remove(map->find(50)); };
  add({{key::objectId, 10}, {key::nextId, 0}});
  EXPECT_EQ(order(), "10 1 51 52");
  map->onMoved = [&](OObject* obj) { map->move(map->getNextObj(obj), nullptr); };
  ask(cmd::moveObj, {{key::objectId, 10}, {key::nextId, 51}});
  EXPECT_EQ(order(), "1 10 52 51");
  map->onRemoved = [&](OObject* obj) {
    map->remove(map->find(52));
    map->add(makeOItem(obj->id), nullptr);
  };
  ask(cmd::removeObj, {{key::objectId, 1}});
  EXPECT_EQ(order(), "10 51 1");
  map->onMoved = map->onRemoved = {};
  map->onChanged = [&](OObject*, OObject*) {
    map->cmdMoveObj(message{{key::nextId, 0}}, 51);
    map->cmdRemoveObj({}, 10);
  };
  ask(cmd::setObj, {{key::objectId, 1}});
  EXPECT_EQ(order(), "51 1");
  EXPECT_EQ(chain(), "head>51 51>1 1>end");
}

TEST_F(AOmapHooks, MayEvenRemoveTheObjectThatTheyAreCalledFor) {
  const auto drop = [&](OObject* obj) { map->remove(map->find(obj->id)); };
  const std::string gone = "unstore 1, store 4294967294, notify 1, reply";
  map->onAdded = drop;
  EXPECT_EQ(ask(cmd::addObj), message({{key::objectId, 1}}));
  EXPECT_EQ(line(), "checkAdd 1>end, store 1, store 4294967294, objAdded 1, " + gone);
  map->onAdded = {};

  add();
  map->onCheckChange = [&](OObject*, OObject* obj) { return drop(obj), nv::failedMsg("gone"); };
  EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}}), nv::failedMsg("gone"));
  EXPECT_EQ(line(), "checkChange 1>end, " + gone);
  map->onCheckChange = {};

  add();
  map->onChanged = [&](OObject*, OObject* obj) { drop(obj); };
  EXPECT_EQ(ask(cmd::setObj, {{key::objectId, 1}}), message());
  EXPECT_EQ(line(), "checkChange 1>end, store 1, objChanged 1, " + gone);

  add();
  map->onCheckRemove = [&](OObject* obj) { return drop(obj), message(); };
  EXPECT_EQ(ask(cmd::removeObj, {{key::objectId, 1}}), message());
  EXPECT_EQ(line(), "checkRemove 1>end, " + gone);

  addAll({1, 2});
  map->onCheckMove = [&](OObject* obj, OObject*, OObject*) { return drop(obj), message(); };
  EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, 1}}), message());
  EXPECT_EQ(line(), "checkMove 1>2 to end, " + gone);
  map->onCheckMove = {};
  map->onMoved = drop;
  EXPECT_EQ(ask(cmd::moveObj, {{key::objectId, 2}}), message());
  EXPECT_EQ(Element::alive, 0);
}

TEST_F(AOmapHooks, MayRemoveTheStartOfAPageWhileItsDefaultsAreMade) {
  addAll({1, 2});
  Element::onGet = [&](Object& obj, message&, std::uint32_t) {
    if (obj.id == nv::kNoId) map->remove(map->find(1));
  };
  EXPECT_EQ(page({{key::startId, 1}, {key::getFlags, 0x20000005}}), "");
  EXPECT_EQ(order(), "2");
}

TEST_F(AOmapHooks, WhichGiveOutAnIdTwiceAreRefusedAndNothingIsLost) {
  add({{key::objectId, 5}, {field::text, "first"}});
  map->onAllocate = [](std::uint32_t) { return 5u; };
  EXPECT_EQ(ask(cmd::addObj, {{key::objectId, 6}}), refused(err::idInUse));
  EXPECT_EQ(at(5).config.text, "first");
  EXPECT_EQ(Element::alive, 1);
}

}  // namespace
