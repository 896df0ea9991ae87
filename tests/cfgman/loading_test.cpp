// A manager that starts on a store: healthy, cyclic and damaged chains, and stores whose last
// change was cut.
#include <set>
#include <vector>

#include "tests/support/cfgman_fixture.h"
#include "tests/support/cfgman_model.h"
#include "tests/support/random.h"

using namespace test;

namespace {

message recordOf(std::uint32_t id, std::uint32_t next) {
  message record{{key::objectId, id}, {key::absent, 0}};
  if (next != kNoId) record.insert(key::nextId, next);
  return record;
}

class CfgManLoading : public CfgManTest {
 protected:
  void startOn(const Records& records, Kind kind = Kind::ordered) {
    stop();
    stores.clear();
    for (const auto& [id, record] : records) stores.set("items", id, record);
    start(kind);
    kit->settle();
    EXPECT_EQ(stores.records("items"), records);
  }
};

TEST_F(CfgManLoading, APlantedItemIsFilledBehindItsRecord) {
  auto users = recordOf(1, 3);
  users.insert(key::name, "users");
  startOn(
      {{kHeadId, {{key::nextId, 2}}}, {1, users}, {2, recordOf(2, 1)}, {3, recordOf(3, kNoId)}});
  std::unique_ptr<CfgMan::Item> planted;
  for (const bool fills : {true, false}) {
    configure = [&] {
      planted.reset(cm->plant(false, this).item());
      if (fills) cm->scheduleUpdate(1, {{key::absent, 0}, {key::cfgFlagA, true}}, {}, {}, {});
    };
    restart();
    EXPECT_EQ(ids(), "2 1 3");
    EXPECT_EQ(planted->config.get(key::name), "users");
    EXPECT_TRUE(planted->config.get(key::cfgFlagA));
    EXPECT_EQ(stored(), "head>2 1>3 2>1 3");
  }
  stop();
}

// Chance.

/// A chain through some ids in any order, whole or closed to a ring.
Records chainThrough(Random& random, Ids ids, bool isRing) {
  for (auto k = ids.size(); k > 1; --k)
    std::swap(ids[k - 1], ids[random.below(static_cast<unsigned>(k))]);
  Records records;
  for (std::size_t k = 0; k < ids.size(); ++k) {
    const auto next = k + 1 < ids.size() ? ids[k + 1] : isRing ? ids[0] : kNoId;
    records[ids[k]] = recordOf(ids[k], next);
  }
  records[kHeadId] = {{key::nextId, ids[0]}};
  return records;
}

Ids someIds(Random& random, std::uint32_t from) {
  std::set<std::uint32_t> ids;
  for (auto count = 2 + random.below(14); count > 0; --count) ids.insert(from + random.below(30));
  return {ids.begin(), ids.end()};
}

void damage(Random& random, Records& records) {
  for (auto count = 1 + random.below(5); count > 0; --count) {
    const auto id = std::next(records.begin(),
                              static_cast<int>(random.below(static_cast<unsigned>(records.size()))))
                        ->first;
    constexpr std::uint32_t odd[] = {0, 99, 0xfffffffd, kHeadId, kNoId};
    const auto next = random.below(4) == 0 ? odd[random.below(5)] : 1 + random.below(32);
    if (random.below(4) == 0 && records.size() > 1)
      records.erase(id);
    else if (random.below(8) == 0)
      records[id] = {{key::absent, 1}, {key::cfgFlagA, true}};
    else
      records[id].insert(key::nextId, next);
  }
}

TEST_F(CfgManLoading, BringsEachRecordOfADamagedStoreBackOnce) {
  Random random;
  SCOPED_TRACE(random.seed());
  for (int round = 0; round < 4000 && !HasFailure(); ++round) {
    SCOPED_TRACE("store " + std::to_string(round));
    auto records = chainThrough(random, someIds(random, 1), random.below(3) == 0);
    if (random.below(3) == 0) records.merge(chainThrough(random, someIds(random, 100), true));
    if (random.below(3) > 0) damage(random, records);
    CfgService service;
    configure = [&] { service.setUp(*cm); };
    service.ordered = random.below(8) > 0;
    CfgManModel model;
    model.records = records;
    if (!service.ordered) model.records.erase(kHeadId);
    model.restart(service);
    startOn(model.records, service.ordered ? Kind::ordered : Kind::unordered);
    EXPECT_EQ(model.difference(*cm), "");
    EXPECT_EQ(cm->items.size(), records.size() - records.count(kHeadId));
    restart();
    EXPECT_EQ(model.difference(*cm), "");
  }
}

// Stores that hold the first part of a change.

class CfgManCutOff : public CfgManLoading {
 protected:
  void SetUp() override {
    startOn({});
    for (const auto before : {kNoId, kNoId, 1u, 2u, kNoId}) add({{key::nextId, before}});
    ASSERT_EQ(ids(), "3 1 4 2 5");
    kit->settle();
    whole = stores.records("items");
  }
  /// Every item that was stored is back, but one that may be gone, and the order can be changed.
  void expectAllBack(const message& change) {
    const auto removed =
        change.get(key::command) == cmd::removeObj ? change.get(key::objectId) : kNoId;
    for (const auto& [id, record] : whole)
      EXPECT_TRUE(id == removed || id == kHeadId || cm->find(id) != nullptr) << id << ": " << ids();
    const auto once = ids();
    restart();
    EXPECT_EQ(ids(), once);
    EXPECT_FALSE(nv::isError(ask(cmd::addObj, {{key::nextId, 4}})));
  }

  Records whole;
};

const message kChanges[] = {
    command(cmd::addObj),
    command(cmd::addObj, {{key::nextId, 3}}),
    command(cmd::addObj, {{key::nextId, 4}}),
    command(cmd::addObj, {{key::nextId, 99}}),
    command(cmd::moveObj, {{key::objectId, 3}}),
    command(cmd::moveObj, {{key::objectId, 5}, {key::nextId, 3}}),
    command(cmd::moveObj, {{key::objectId, 1}, {key::nextId, 5}}),
    command(cmd::moveObj, {{key::objectId, 2}, {key::nextId, 1}}),
    command(cmd::removeObj, {{key::objectId, 3}}),
    command(cmd::removeObj, {{key::objectId, 4}}),
    command(cmd::removeObj, {{key::objectId, 5}}),
};

TEST_F(CfgManCutOff, LosesNoItemAfterAnyNumberOfStoreOperations) {
  for (const auto& change : kChanges) {
    SCOPED_TRACE(::testing::PrintToString(change));
    startOn(whole);
    ask(change);
    auto records = whole;
    for (const auto& op : std::exchange(kit->seen().storeOps, {})) {
      startOn(records);
      expectAllBack(change);
      if (op.record)
        records[op.id] = *op.record;
      else
        records.erase(op.id);
    }
    startOn(records);
    expectAllBack(change);
  }
}

}  // namespace
