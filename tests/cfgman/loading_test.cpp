// A manager that starts on a store: healthy, cyclic and damaged chains, and stores whose last
// change was cut.
#include <algorithm>
#include <numeric>
#include <set>
#include <vector>

#include "tests/support/captured_output.h"
#include "tests/support/cfgman_fixture.h"
#include "tests/support/cfgman_model.h"
#include "tests/support/cfgman_verify.h"
#include "tests/support/random.h"

using namespace test;
namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::kHeadId;
using nv::kNoId;
using nv::message;

namespace {

using Ids = std::vector<std::uint32_t>;

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
    EXPECT_TRUE(verify(*cm));
    kit->settle();
    EXPECT_EQ(stores.records("items"), records);
  }
  Ids loaded() const {
    Ids all;
    for (auto it = cm->begin(); it.item() != nullptr; it.next()) all.push_back(it.item()->id);
    return all;
  }
};

Ids idsOf(const Records& records) {
  Ids all;
  for (const auto& [id, record] : records)
    if (id < kHeadId) all.push_back(id);
  return all;
}

TEST_F(CfgManLoading, BringsBackTheOrderOfTheChain) {
  const struct {
    const char* what;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> chain;
    const char* ids;
  } cases[] = {
      {"nothing", {}, ""},
      {"a head alone", {{kHeadId, kNoId}}, ""},
      {"one", {{kHeadId, 7}, {7, kNoId}}, "7"},
      {"two", {{kHeadId, 5}, {5, 3}, {3, kNoId}}, "5 3"},
      {"many", {{kHeadId, 4}, {4, 1}, {1, 9}, {9, 2}, {2, kNoId}}, "4 1 9 2"},
      {"object 0 and the highest",
       {{kHeadId, 0}, {0, 0xfffffffd}, {0xfffffffd, kNoId}},
       "0 4294967293"},
      {"no head", {{4, 1}, {1, 2}, {2, kNoId}}, "4 1 2"},
      {"a head that names nobody", {{kHeadId, 88}, {4, 1}, {1, kNoId}}, "4 1"},
      {"a head that names the last", {{kHeadId, 1}, {4, 1}, {1, kNoId}}, "4 1"},
      {"no links at all", {{1, kNoId}, {2, kNoId}, {3, kNoId}}, "3 2 1"},
      {"an end that names itself", {{kHeadId, 4}, {4, 1}, {1, 1}}, "4 1"},
      {"an end that names the head", {{kHeadId, 4}, {4, 1}, {1, kHeadId}}, "4 1"},
      {"an end that names no record", {{kHeadId, 4}, {4, 1}, {1, 99}}, "4 1"},
      {"a gap in the middle", {{kHeadId, 1}, {1, 4}, {4, 3}, {2, kNoId}}, "1 4 2"},
      {"two that name one", {{kHeadId, 1}, {1, 3}, {2, 3}, {3, kNoId}}, "2 1 3"},
      {"a cycle", {{kHeadId, 2}, {2, 5}, {5, 3}, {3, 2}}, "5 3 2"},
      {"a cycle of two", {{1, 2}, {2, 1}}, "2 1"},
      {"two cycles", {{1, 2}, {2, 1}, {8, 9}, {9, 8}}, "9 8 2 1"},
      {"a cycle behind a tail", {{2, 3}, {3, 5}, {5, 3}}, "5 2 3"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.what);
    Records records;
    for (const auto& [id, next] : one.chain)
      records[id] = id == kHeadId ? message{{key::nextId, next}} : recordOf(id, next);
    startOn(records);
    EXPECT_EQ(ids(), one.ids);
    restart();
    EXPECT_EQ(ids(), one.ids);
  }
}

TEST_F(CfgManLoading, TakesRecordsWithoutAnOrderAscending) {
  Records records;
  for (const auto id : {9u, 2u, 5u}) records[id] = {{key::name, "n" + std::to_string(id)}};
  records[7] = {{key::absent, 1}, {key::cfgFlagA, true}};
  startOn(records, Kind::unordered);
  EXPECT_EQ(ids(), "2 5 7 9");
  EXPECT_EQ(cm->find(7)->config,
            message({{key::objectId, 7}, {key::absent, 0}, {key::cfgFlagA, true}}));
  EXPECT_EQ(add(), 1u);
  EXPECT_EQ(add(), 3u);
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
    else
      records[id].insert(key::nextId, next);
  }
}

TEST_F(CfgManLoading, BringsEachRecordOfADamagedStoreBackOnce) {
  Random random;
  SCOPED_TRACE(random.seed());
  CfgService service;
  service.ordered = true;
  for (int round = 0; round < 4000 && !HasFailure(); ++round) {
    SCOPED_TRACE("store " + std::to_string(round));
    const bool isWhole = random.below(3) == 0;
    auto records = chainThrough(random, someIds(random, 1), random.below(3) == 0);
    if (random.below(3) == 0) records.merge(chainThrough(random, someIds(random, 100), true));
    if (!isWhole) damage(random, records);

    const auto order = loadingOrderByRule(records, true);
    ASSERT_EQ(std::set(order.begin(), order.end()).size(), order.size());
    ASSERT_EQ(order.size(), idsOf(records).size());
    if (isWhole) {
      ASSERT_EQ(order, loadingOrderByRule(records, false));
    }

    CfgManModel model;
    model.records = records;
    model.restart(service);
    startOn(records);
    EXPECT_EQ(loaded(), model.order);
    EXPECT_EQ(cm->items.size(), order.size());
    restart();
    EXPECT_EQ(loaded(), model.order);
  }
}

// Changes that put items before stored ones, or at the end, leave a chain that says the whole
// order.
TEST_F(CfgManLoading, BringsBackTheOrderThatRandomChangesMade) {
  Random random;
  SCOPED_TRACE(random.seed());
  start(Kind::ordered);
  for (int round = 0; round < 300 && !HasFailure(); ++round) {
    for (auto count = random.below(8); count > 0; --count) {
      Ids stored;
      for (const auto& [id, item] : cm->items)
        if (item->store) stored.push_back(id);
      const auto anyStored = [&] {
        const auto k = random.below(static_cast<unsigned>(stored.size()) + 1);
        return k < stored.size() ? stored[k] : kNoId;
      };
      constexpr unsigned codes[] = {cmd::addObj, cmd::addObj, cmd::moveObj, cmd::removeObj};
      auto change = command(codes[random.below(4)], {{key::nextId, anyStored()}});
      if (change.get(key::command) != cmd::addObj)
        change.insert(key::objectId, anyStored());
      else if (random.below(5) == 0)
        change.insert(key::dynamic, true);
      // What stays where it is names the next item, which may not be stored.
      if (change.get(key::objectId, 0) != change.get(key::nextId)) ask(change);
    }
    Ids before;
    for (const auto id : loaded())
      if (cm->find(id)->store) before.push_back(id);
    restart();
    EXPECT_EQ(loaded(), before);
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
  /// Every item that was stored is back, but one that may be gone.
  void expectAllBack(std::uint32_t removed) {
    const auto back = loaded();
    EXPECT_EQ(std::set(back.begin(), back.end()).size(), back.size());
    for (const auto id : idsOf(whole)) {
      EXPECT_TRUE(id == removed || std::count(back.begin(), back.end(), id) == 1) << ids();
    }
    EXPECT_TRUE(verify(*cm));
    const auto once = ids();
    restart();
    EXPECT_EQ(ids(), once);
    EXPECT_FALSE(nv::isError(ask(cmd::addObj, {{key::nextId, 4}})));
    EXPECT_TRUE(verify(*cm));
  }

  Records whole;
  CapturedOutput failures;
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

std::uint32_t removedBy(const message& change) {
  return change.get(key::command) == cmd::removeObj ? change.get(key::objectId) : kNoId;
}

TEST_F(CfgManCutOff, LosesNoItemAfterAnyNumberOfStoreOperations) {
  for (const auto& change : kChanges) {
    startOn(whole);
    ask(change);
    const auto ops = kit->seen().storeOps;
    ASSERT_GE(ops.size(), 2u);
    for (std::size_t kept = 0; kept <= ops.size(); ++kept) {
      SCOPED_TRACE(change.get(key::command));
      SCOPED_TRACE(kept);
      auto records = whole;
      for (std::size_t k = 0; k < kept; ++k) {
        if (ops[k].record)
          records[ops[k].id] = *ops[k].record;
        else
          records.erase(ops[k].id);
      }
      startOn(records);
      expectAllBack(removedBy(change));
    }
  }
}

TEST_F(CfgManCutOff, LosesNoItemWhenThePowerFailsInACommit) {
  for (const auto& change : kChanges) {
    for (unsigned kept = 0; kept < 5; ++kept) {
      SCOPED_TRACE(change.get(key::command));
      SCOPED_TRACE(kept);
      startOn(whole);
      kit->engine().cutAfter(kept);
      ask(change);
      kit->settle();
      restart();
      expectAllBack(removedBy(change));
    }
  }
}

// What is in the batch goes to the disk as a whole or not at all.
TEST_F(CfgManCutOff, KeepsTheOldOrderWhenACommitFails) {
  for (const auto& change : kChanges) {
    startOn(whole);
    kit->engine().failCommit(1, "the disk is full");
    ask(change);
    kit->settle();
    EXPECT_TRUE(kit->exitStatus().has_value());
    restart();
    EXPECT_EQ(ids(), "3 1 4 2 5");
  }
}

}  // namespace
