// Commands to a manager of many items, and an item that goes before many that are not stored.
#include <cstdio>
#include <cstdlib>

#include "bench/cfgman_bench.h"
#include "bench/support/crowds.h"
#include "bench/support/no_refusals.h"
#include "testing/kit.h"

namespace bench {

namespace {

/// Every tenth item is not stored.
bool isDynamic(std::uint32_t id, std::uint32_t stored) { return id > stored; }

/// A manager of N items and the commands to it, about random ones.
class Crowd {
 public:
  Crowd(std::uint32_t address, std::uint32_t items, bool ordered)
      : ids(items), manager_(address), stored_(items / 10 * 9) {
    manager_.cm.setStore(std::to_string(stored_), ordered);
    manager_.runAll();
    for (std::uint32_t id = stored_ + 1; id <= items; ++id) add(id);
    if (manager_.cm.items.size() != items) std::abort();
  }

  /// Without a name, in front of some other.
  void add(std::uint32_t id) {
    nv::message fields{{nv::key::objectId, id},
                       {nv::key::nextId, anyStored()},
                       {nv::key::cfgText, textOf(id)},
                       {kTag, id % 4094}};
    if (isDynamic(id, stored_)) fields.insert(nv::key::dynamic, true);
    manager_.send(nv::cmd::addObj, std::move(fields));
  }
  void set(std::uint32_t id) {
    manager_.send(nv::cmd::setObj, {{nv::key::objectId, id}, {kTag, ++changes_}});
  }
  void move(std::uint32_t id) {
    manager_.send(nv::cmd::moveObj, {{nv::key::objectId, id}, {nv::key::nextId, anyStored()}});
  }
  void remove(std::uint32_t id) { manager_.send(nv::cmd::removeObj, {{nv::key::objectId, id}}); }

  ShuffledIds ids;

 private:
  std::uint32_t anyStored() {
    while (true)
      if (const auto id = ids.other(); id <= stored_) return id;
  }

  Manager manager_;
  std::uint32_t stored_;
  std::uint32_t changes_ = 0;
};

void compareSizes(bool ordered, Bars& bars) {
  nv::testkit::Kit kit(std::make_unique<MadeUpStore>());
  const NoRefusals watching;
  Crowd few(5, kFew, ordered), many(6, kMany, ordered);
  compare(kit, few, many, ordered ? "ordered " : "unordered ", bars);
}

}  // namespace

void thousandAndMillion(Bars& bars) {
  compareSizes(true, bars);
  compareSizes(false, bars);
}

/// The place of a stored item in the chain is found by a walk over those that are not stored.
void runOfUnstored(Bars&) {
  constexpr std::uint32_t kStored = 1000;
  constexpr std::uint32_t kRun = 20000;
  constexpr unsigned kTurns = 40;
  nv::testkit::Kit kit(std::make_unique<MadeUpStore>());
  const NoRefusals watching;
  Manager manager(5);
  manager.cm.setStore(std::to_string(kStored), true);
  manager.runAll();
  for (std::uint32_t n = 1; n <= kRun; ++n)
    manager.send(nv::cmd::addObj, {{nv::key::objectId, kStored + n},
                                   {nv::key::nextId, kStored / 2},
                                   {nv::key::dynamic, true}});

  const auto moveBefore = [&](std::uint32_t before) {
    Fastest fastest;
    for (unsigned n = 0; n < kTurns; ++n) {
      manager.send(nv::cmd::moveObj, {{nv::key::objectId, 1}, {nv::key::nextId, 10}});
      fastest.take(timeOf([&] {
        manager.send(nv::cmd::moveObj, {{nv::key::objectId, 1}, {nv::key::nextId, before}});
      }));
      kit.settle();
    }
    return fastest.time() * 1e6;
  };
  std::printf(
      "a stored item moves before a stored one: %.1f us, before the last of %u in a row "
      "that are not stored: %.1f us, before the first: %.1f us\n",
      moveBefore(kStored / 2 + 10), kRun, moveBefore(kStored + kRun), moveBefore(kStored + 1));
}

}  // namespace bench
