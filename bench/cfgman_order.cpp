// Commands to a manager of many items, and an item that goes before many that are not stored.
#include <array>
#include <cstdio>
#include <cstdlib>

#include "bench/cfgman_bench.h"
#include "bench/support/chain_file.h"
#include "bench/support/no_refusals.h"
#include "testing/kit.h"

namespace bench {

namespace {

constexpr unsigned kTurns = 40;
constexpr std::size_t kBatch = 200;
constexpr std::uint32_t kFew = 1000;
constexpr std::uint32_t kMany = 1000000;

/// Every tenth item is not stored.
bool isDynamic(std::uint32_t id, std::uint32_t stored) { return id > stored; }

/// A manager of N items and the commands to it, about random ones.
class Crowd {
 public:
  Crowd(std::uint32_t address, std::uint32_t items, bool ordered)
      : manager_(address), stored_(items / 10 * 9), ids_(shuffled(items)) {
    manager_.cm.setStore(std::to_string(stored_), ordered);
    manager_.runAll();
    for (std::uint32_t id = stored_ + 1; id <= items; ++id) add(id);
    if (manager_.cm.items.size() != items) std::abort();
  }

  /// The ids of the next batch; each is taken once before one comes again.
  std::vector<std::uint32_t> batch() {
    if (next_ + kBatch > ids_.size()) next_ = 0;
    const auto first = ids_.begin() + static_cast<std::ptrdiff_t>(next_);
    next_ += kBatch;
    return {first, first + kBatch};
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
  CfgMan& cm() { return manager_.cm; }

 private:
  /// None of the present batch.
  std::uint32_t anyStored() {
    while (true) {
      const std::size_t k = random_() % ids_.size();
      if (ids_[k] <= stored_ && (k >= next_ || k + kBatch < next_)) return ids_[k];
    }
  }

  Manager manager_;
  std::uint32_t stored_;
  std::vector<std::uint32_t> ids_;
  std::size_t next_ = 0;
  std::uint32_t changes_ = 0;
  std::mt19937 random_{2};
};

struct Operation {
  const char* name;
  void (Crowd::*command)(std::uint32_t id);
};
// Who was removed is added again.
constexpr std::array<Operation, 4> kOperations{Operation{"set", &Crowd::set},
                                               {"move", &Crowd::move},
                                               {"remove", &Crowd::remove},
                                               {"add", &Crowd::add}};
using Times = std::array<Fastest, kOperations.size()>;

void turn(nv::testkit::Kit& kit, Crowd& crowd, Times& times) {
  const auto ids = crowd.batch();
  for (std::size_t k = 0; k < kOperations.size(); ++k) {
    times[k].take(timeOf([&] {
      for (const auto id : ids) (crowd.*kOperations[k].command)(id);
      kit.settle();
    }));
  }
}

void compare(bool ordered, Bars& bars) {
  nv::testkit::Kit kit(std::make_unique<MadeUpStore>());
  const NoRefusals watching;
  Crowd few(5, kFew, ordered), many(6, kMany, ordered);
  Times timesOfFew, timesOfMany;
  for (unsigned n = 0; n < kTurns; ++n) {
    turn(kit, few, timesOfFew);
    turn(kit, many, timesOfMany);
  }
  for (std::size_t k = 0; k < kOperations.size(); ++k) {
    const auto nanos = [&](Times& times) { return times[k].time() * 1e9 / kBatch; };
    const auto what = std::string(ordered ? "ordered " : "unordered ") + kOperations[k].name;
    std::printf("%s: %.0f ns at 1,000, %.0f ns at 1,000,000\n", what.c_str(), nanos(timesOfFew),
                nanos(timesOfMany));
    bars.atMost(what + ", 1,000,000 / 1,000", nanos(timesOfMany) / nanos(timesOfFew), 2);
  }
}

}  // namespace

void thousandAndMillion(Bars& bars) {
  compare(true, bars);
  compare(false, bars);
}

/// The place of a stored item in the chain is found by a walk over those that are not stored.
void runOfUnstored(Bars&) {
  constexpr std::uint32_t kStored = 1000;
  constexpr std::uint32_t kRun = 20000;
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
