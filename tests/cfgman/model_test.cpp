// Random changes of a configuration manager, side by side with a plain model of it, through
// restarts.
#include <list>
#include <vector>

#include "tests/support/cfgman_model.h"
#include "tests/support/cfgman_watchers.h"
#include "tests/support/random.h"

using namespace test;

namespace {

#ifdef CONFKIT_SLOW
constexpr unsigned kCommands = 5000;
#else
constexpr unsigned kCommands = 50000;
#endif
constexpr std::uint32_t kMaxId = 24;

class Watcher final : public CfgMan::Link {
 public:
  void update(CfgMan::Item* item, const message& oldCfg, const message& newCfg,
              const message& oldState, const message& newState,
              const vset<unsigned>& keys) override {
    EXPECT_EQ(item->config, newCfg);
    EXPECT_EQ(item->state, newState);
    observed.push_back(
        {item->id, oldCfg, newCfg, oldState, newState, keys, manager->generateDefaultName()});
  }
  void print(std::ostream&) override {}

  CfgMan* manager = nullptr;
  std::vector<Observed> observed;
};

class CfgManBesideItsModel : public CfgManTest, public ::testing::WithParamInterface<bool> {
 protected:
  ~CfgManBesideItsModel() override { stop(); }

  // Chance.

  bool once(unsigned n) { return random.below(n) == 0; }
  template <class T, std::size_t n>
  const T& oneOf(const T (&choices)[n]) {
    return choices[random.below(n)];
  }
  std::uint32_t anyId() {
    constexpr std::uint32_t odd[] = {0, kMaxId + 1, 99, 0x80000000, 0xfffffffd, 0xfffffffe};
    return once(20) ? oneOf(odd) : 1 + random.below(kMaxId);
  }
  std::uint32_t anyPlace() { return once(5) ? kNoId : anyId(); }
  std::string anyName() {
    const std::string names[] = {"lamp", "",         "vlanx",    "vlan007", "eth19",
                                 "eth1", "vlan",     "vlan0",    "vlan999", "vlan09",
                                 "9",    "vlan1234", "vlan99a9", "_x7",     "made"};
    return once(2) ? oneOf(names) : "vlan" + std::to_string(random.below(40));
  }
  Ids anyRemovals() {
    const std::uint32_t uids[] = {
        key::name.uid(),     key::nextId.uid(),   key::dynamic.uid(), key::absent.uid(),
        key::cfgFlagA.uid(), field::number.uid(), field::level.uid(), key::stateFlag.uid(),
        0x0ffe0005,          key::objectId.uid(), 0x38fe0005,         key::cfgText.uid(),
        0x27fe0010,          0x88ff0014,          0xffffffff,         0};
    Ids removals;
    for (unsigned count = random.below(5); count > 0; --count) removals.push_back(oneOf(uids));
    return removals;
  }

  void addFields(message& m) {
    if (once(2)) m.insert(key::nextId, anyPlace());
    if (once(3)) m.insert(key::name, anyName());
    if (once(3)) m.insert(field::number, once(6) ? 13 : 5 + random.below(4));
    if (once(5)) m.insert(key::cfgFlagA, once(2));
    if (once(9)) m.insert(key::cfgText, std::string(random.below(300), 't'));
    if (once(20)) m.insert(key::defaultCfg, message{{key::name, "nested"}});
    if (once(5)) m.insert(field::level, random.below(3));
    if (once(9)) m.insert(key::stateFlag, once(2));
    if (once(30)) m.insert(key::replaceState, once(2));
    if (once(8)) m.insert(key::removals, anyRemovals());
    if (once(30)) m.insert(key::absent, random.below(3));
    if (once(40)) m.insert(key::dynamic, once(2));
  }
  message anyRead() {
    constexpr unsigned codes[] = {cmd::getObj, cmd::get, cmd::getAll, cmd::getCount};
    constexpr unsigned flags[] = {nv::kConfigOnlyBit, nv::kDefaultCfgBit, nv::kDefaultFlags};
    message m = command(oneOf(codes));
    if (once(2)) m.insert(key::objectId, anyId());
    if (once(2)) m.insert(key::startId, anyPlace());
    if (once(2)) m.insert(key::maxCount, random.below(kMaxId));
    if (once(2)) m.insert(key::getFlags, oneOf(flags));
    return m;
  }
  message anyCommand() {
    if (once(6)) return anyRead();
    constexpr unsigned codes[] = {cmd::addObj, cmd::addObj,  cmd::addObj,    cmd::setObj,
                                  cmd::setObj, cmd::setObj,  cmd::moveObj,   cmd::moveObj,
                                  cmd::set,    cmd::moveObj, cmd::removeObj, cmd::removeObj};
    const auto code = oneOf(codes);
    message m = command(code);
    if (!once(code == cmd::addObj ? 2 : 30)) m.insert(key::objectId, anyId());
    if (code == cmd::moveObj) {
      if (!once(4)) m.insert(key::nextId, once(9) ? m.get(key::objectId) : anyPlace());
      if (!once(9)) return m;
    }
    if (code == cmd::addObj && once(4)) m.insert(key::dynamic, true);
    addFields(m);
    return m;
  }
  CfgService anyService() {
    const std::string prefixes[] = {"", "vlan", "vlan", "vlan", "_x", "eth1", "9"};
    CfgService made;
    made.ordered = GetParam();
    made.hook = static_cast<CfgService::Hook>(random.below(3));
    made.hasExternalIds = once(3);
    made.namePrefix = oneOf(prefixes);
    if (once(4))
      made.defcfg = {
          {key::cfgFlagA, true}, {key::name, "default"}, {key::objectId, 3}, {key::absent, 1}};
    if (once(3)) made.minId = 4;
    if (!once(3)) made.maxId = kMaxId;
    return made;
  }

  // Steps: each is done to both.

  void restartBoth() {
    stop();
    planted.clear();
    const auto service = anyService();
    configure = [&] {
      watcher.manager = cm.get();
      cm->links.push_back(&watcher);
      cm->mkSubscr = [](const message& request, bool) {
        return request.empty() ? nullptr : new Filter(request, 5, [](unsigned, const message& cfg) {
          EXPECT_EQ(cfg.get(key::absent), 0u);
          EXPECT_FALSE(cfg.has(key::stateFlag));
          return CfgService::interests(cfg);
        });
      };
      service.setUp(*cm);
    };
    start(service.ordered ? Kind::ordered : Kind::unordered);
    model.restart(service);
    bool isPlain = true;
    for (const auto& request : {message(), command(cmd::subscribe)})
      cm->handler->subscribe(request, isPlain);
    EXPECT_EQ(stores.records("items"), model.records);
    compareObserved();
    model.told.clear();
  }
  void give(message m) {
    constexpr std::uint32_t rights[] = {0x7fffffff, 0x80000000, 0xffffffff};
    m.insert(key::requester, once(2) ? Ids{9, 4} : Ids{7});
    if (once(2)) m.insert(key::rights, oneOf(rights));
    nv::getLooper()->deliver(*cm->handler, m);
    model.command(m);
  }
  void changeByService() {
    message cfg, state, request;
    if (!once(3)) addFields(cfg);
    if (!once(3)) addFields(state);
    vset<unsigned> keys;
    if (once(3)) keys.insert(random.below(5));
    if (once(2)) request.insert(key::command, once(2) ? cmd::addObj : 0);
    if (once(2)) request.insert(key::rights, 0);
    if (once(4)) request.insert(key::requester, {7});
    const auto id = anyId();
    cm->scheduleUpdate(id, cfg, state, keys, request);
    model.schedule({id, cfg, state, keys, request});
  }
  void plantBoth() {
    const bool isDynamic = once(2);
    if (once(2)) {
      const auto it = cm->plant(isDynamic, nullptr);
      EXPECT_EQ(it.item() != nullptr, model.plant(isDynamic, false).has_value());
      return;
    }
    auto* const item = cm->plant(isDynamic, this).item();
    EXPECT_EQ(item != nullptr, model.plant(isDynamic, true).has_value());
    if (item != nullptr) planted.emplace_back(item);
  }
  void changeName() {
    const std::string prefixes[] = {"vlan", "eth1", "vlan1", "eth"};
    cm->namePrefix = model.service.namePrefix = oneOf(prefixes);
  }
  /// Somebody else takes an id.
  void claimBoth() {
    const auto id = model.service.minId + random.below(20);
    if (model.allocated.insert(id).second) cm->alloc->allocate(id);
  }
  /// Numbers the places anew, and those at the ends so that not many are left.
  void stretchBoth() {
    cm->positionsValid = model.positionsValid = false;
    cm->updatePositions();
    model.updatePositions();
    if (model.order.size() < 2) return;
    const auto move = [this](std::uint32_t id, std::uint32_t position) {
      cm->find(id)->ord->position = model.items[id].position = position;
    };
    move(model.order.front(), 0x10 + random.below(2));
    move(model.order.back(), 0xffffffef + random.below(2));
  }
  void step() {
    if (once(400)) return restartBoth();
    if (once(300)) return claimBoth();
    if (once(100)) return stretchBoth();
    if (once(100)) return changeName();
    if (once(60)) return plantBoth();
    if (once(30)) {
      cm->updatePositions();
      return model.updatePositions();
    }
    if (once(10)) return changeByService();
    for (unsigned count = once(8) ? 1 + random.below(4) : 1; count > 0; --count) {
      give(once(5) ? lastUndo : anyCommand());
      ++commands;
    }
  }

  // What came of it.

  void compareEffects() {
    auto& seen = kit->seen();
    const auto& told = model.told;
    EXPECT_EQ(seen.log, told.log);
    if (HasFailure()) return;
    for (std::size_t k = 0; k < told.replies.size(); ++k) {
      EXPECT_EQ(seen.replies[k].reply, told.replies[k].reply);
      EXPECT_EQ(seen.replies[k].request, told.replies[k].request);
    }
    for (std::size_t k = 0; k < told.undos.size(); ++k) {
      EXPECT_EQ(seen.undos[k].undo, told.undos[k].undo);
      EXPECT_EQ(seen.undos[k].request, told.undos[k].request);
    }
    for (std::size_t k = 0; k < told.notifies.size(); ++k) {
      EXPECT_EQ(seen.notifies[k].removed, told.notifies[k].removed);
      EXPECT_EQ(!seen.notifies[k].cookie, !told.notifies[k].cookie);
    }
    for (std::size_t k = 0; k < told.storeOps.size(); ++k)
      EXPECT_EQ(seen.storeOps[k].record, told.storeOps[k].record);
  }
  void compareObserved() {
    EXPECT_TRUE(watcher.observed == model.observed);
    watcher.observed.clear();
    model.observed.clear();
  }
  void compareStored() {
    kit->settle();
    EXPECT_EQ(stores.records("items"), model.records);
  }

  Watcher watcher;
  Random random;
  CfgManModel model;
  unsigned commands = 0;
  message lastUndo = command(cmd::addObj);
  /// What the test planted, which outlives the manager.
  std::list<std::unique_ptr<CfgMan::Item>> planted;
};

TEST_P(CfgManBesideItsModel, AgreesOnRepliesUndoRecordsItemsAndRecords) {
  SCOPED_TRACE(random.seed());
  restartBoth();
  while (commands < kCommands) {
    SCOPED_TRACE("before command " + std::to_string(commands));
    step();
    runAll();
    model.runAll();
    compareEffects();
    compareObserved();
    EXPECT_EQ(model.difference(*cm), "");
    if (once(50)) compareStored();
    if (HasFailure()) return;
    if (!model.told.undos.empty()) lastUndo = model.told.undos.back().undo;
    model.told.clear();
    kit->seen().clear();
  }
}

INSTANTIATE_TEST_SUITE_P(Orders, CfgManBesideItsModel, ::testing::Bool(),
                         [](const auto& param) { return param.param ? "Ordered" : "Unordered"; });

}  // namespace
