// Commands to a map of many objects, and changes that are put off.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "bench/omap_bench.h"
#include "bench/support/chain_file.h"
#include "bench/support/no_refusals.h"
#include "platform/commands.h"
#include "platform/looper.h"
#include "testing/kit.h"

namespace bench {

namespace {

namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::message;

/// A map of N objects from a made-up store, and the commands to it, about random ones.
class Crowd {
 public:
  static constexpr std::size_t kBatch = 200;

  Crowd(std::uint32_t address, std::uint32_t count)
      : map(std::to_string(count)), ids_(shuffled(count)), address_(address) {
    nv::getLooper()->addHandler(address, &map);
    map.init();
    if (map.objects.size() != count) std::abort();
  }

  std::vector<std::uint32_t> batch() {
    if (next_ + kBatch > ids_.size()) next_ = 0;
    const auto first = ids_.begin() + static_cast<std::ptrdiff_t>(next_);
    next_ += kBatch;
    return {first, first + kBatch};
  }
  /// None of the present batch.
  std::uint32_t any() {
    while (true) {
      const std::size_t k = random_() % ids_.size();
      if (k >= next_ || k + kBatch < next_) return ids_[k];
    }
  }

  void add(std::uint32_t id) {
    send(cmd::addObj, {{key::objectId, id},
                       {key::nextId, any()},
                       {key::name, "vlan" + std::to_string(id)},
                       {key::cfgText, textOf(id)},
                       {kTag, id % 4094}});
  }
  void set(std::uint32_t id) { send(cmd::setObj, {{key::objectId, id}, {kTag, ++changes_}}); }
  void move(std::uint32_t id) { send(cmd::moveObj, {{key::objectId, id}, {key::nextId, any()}}); }
  void remove(std::uint32_t id) { send(cmd::removeObj, {{key::objectId, id}}); }

  Vlans map;

 private:
  void send(unsigned code, message fields) {
    fields.insert(key::command, code).insert(key::route, {address_});
    fields.insert(key::requester, {0xcfff0001, 7});
    nv::getLooper()->deliver(map, std::move(fields.insert(key::tag, 1)));
  }

  std::vector<std::uint32_t> ids_;
  std::uint32_t address_;
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

}  // namespace

void order(Bars& bars) {
  constexpr unsigned kTurns = 40;
  constexpr std::uint32_t kFew = 1000, kMany = 1000000;
  nv::testkit::Kit kit(std::make_unique<MadeUpStore>());
  const NoRefusals watching;
  Crowd few(5, kFew), many(6, kMany);
  Times timesOfFew, timesOfMany;
  for (unsigned n = 0; n < kTurns; ++n) {
    turn(kit, few, timesOfFew);
    turn(kit, many, timesOfMany);
  }
  for (std::size_t k = 0; k < kOperations.size(); ++k) {
    const auto nanos = [&](Times& times) { return times[k].time() * 1e9 / Crowd::kBatch; };
    const std::string what = kOperations[k].name;
    std::printf("%s: %.0f ns at 1,000, %.0f ns at 1,000,000\n", what.c_str(), nanos(timesOfFew),
                nanos(timesOfMany));
    bars.atMost(what + ", 1,000,000 / 1,000", nanos(timesOfMany) / nanos(timesOfFew), 2);
  }
}

namespace {

/// Sets and moves objects without storing, then flushes.
void changeMany(nv::testkit::Kit& kit, Crowd& crowd, unsigned changes) {
  crowd.map.setAutoStore(false);
  for (unsigned done = 0; done < changes;)
    for (const auto id : crowd.batch()) {
      (crowd.*kOperations[done / Crowd::kBatch % 2].command)(id);
      ++done;
    }
  crowd.map.setAutoStore(true);
  kit.settle();
}

}  // namespace

void batch(Bars& bars) {
  constexpr unsigned kSmall = 10000, kLarge = 100000, kTurns = 5;
  auto engine = std::make_unique<MadeUpStore>();
  auto& store = *engine;
  nv::testkit::Kit kit(std::move(engine));
  const NoRefusals watching;
  Crowd crowd(5, kLarge * 2);
  for (std::uint32_t id = 10; id <= kLarge * 2; id += 10)
    static_cast<Vlan&>(*crowd.map.objects.get(id)).storable = false;
  kit.settle();

  Fastest small, large;
  std::printf("commits and records:");
  for (unsigned n = 0; n < kTurns; ++n) {
    small.take(timeOf([&] { changeMany(kit, crowd, kSmall); }) / kSmall);
    store.commits = 0;
    store.written = 0;
    large.take(timeOf([&] { changeMany(kit, crowd, kLarge); }) / kLarge);
    std::printf(" %u of %zu", store.commits, store.written);
  }
  std::printf("\na change, with its part of the flush: %.0f ns of 10,000, %.0f ns of 100,000\n",
              small.time() * 1e9, large.time() * 1e9);
  bars.atMost("a change put off, 100,000 / 10,000", large.time() / small.time(), 1.5);
  bars.atMost("transactions of a batch of 100,000", store.commits, 1);
}

}  // namespace bench
