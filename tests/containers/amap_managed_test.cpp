// What object maps without an order do alone: objects that somebody manages, and ids in what is
// told.
#include "tests/support/map_fixture.h"

using namespace test;

namespace {

using AMapManaged = AMapTest;

TEST_F(AMapManaged, OnlyWhoManagesAnObjectChangesItAndWithoutUndo) {
  map->managed = true;
  add({{key::objectId, 1}, {key::managedId, 9}, {key::dynamic, true}});
  EXPECT_EQ(line(), "checkAdd 1, store 1, objAdded 1, notify 1, reply");
  EXPECT_EQ(kit->seen().storeOps[0].record,
            configured({}, {{key::objectId, 1}, {key::managedId, 9}}));
  add({{key::objectId, 2}});
  const message no = nv::failedMsg("can not change managed object");
  const struct {
    std::uint32_t id, manager;
    bool allowed;
  } cases[] = {
      {1, nv::kNoId, false}, {1, 8, false}, {1, 9, true}, {2, 9, false}, {2, nv::kNoId, true}};
  for (const unsigned code : {cmd::setObj, cmd::removeObj}) {
    for (const auto& c : cases) {
      const message request =
          command(code, {{key::objectId, c.id}, {key::managedId, c.manager}, {field::number, 1}});
      // Who manages is asked for before the dynamic mark.
      if (!c.allowed) {
        EXPECT_EQ(ask(request, userWithRights(0)), no);
      }
      EXPECT_EQ(ask(request), c.allowed ? message() : no);
      EXPECT_EQ(kit->seen().undos.size(), c.allowed && c.id == 2 ? 1u : 0u);
    }
  }
  EXPECT_EQ(order(), "");
}

TEST_F(AMapManaged, GetOneEndsWithTheIdAndOthersBeginWithIt) {
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
  EXPECT_EQ(map->getObject(8, 5), message({{key::objectId, 8}, {key::absent, 1}}));
  EXPECT_EQ(message(ask(cmd::getAll).get(key::objects)[0]), own);
  map->changed(&at(7), true);
  EXPECT_EQ(kit->seen().storeOps[0].record, own);
}

}  // namespace
