// Commands to a map of many objects, and changes that are put off.
#include <cstdio>
#include <cstdlib>

#include "bench/omap_bench.h"
#include "bench/support/crowds.h"
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
  Crowd(std::uint32_t address, std::uint32_t count)
      : map(std::to_string(count)), ids(count), address_(address) {
    nv::getLooper()->addHandler(address, &map);
    map.init();
    if (map.objects.size() != count) std::abort();
  }

  void add(std::uint32_t id) {
    send(cmd::addObj, {{key::objectId, id},
                       {key::nextId, ids.other()},
                       {key::name, "vlan" + std::to_string(id)},
                       {key::cfgText, textOf(id)},
                       {kTag, id % 4094}});
  }
  void set(std::uint32_t id) { send(cmd::setObj, {{key::objectId, id}, {kTag, ++changes_}}); }
  void move(std::uint32_t id) {
    send(cmd::moveObj, {{key::objectId, id}, {key::nextId, ids.other()}});
  }
  void remove(std::uint32_t id) { send(cmd::removeObj, {{key::objectId, id}}); }

  Vlans map;
  ShuffledIds ids;

 private:
  void send(unsigned code, message fields) {
    fields.insert(key::command, code).insert(key::route, {address_});
    fields.insert(key::requester, {0xcfff0001, 7});
    nv::getLooper()->deliver(map, std::move(fields.insert(key::tag, 1)));
  }

  std::uint32_t address_;
  std::uint32_t changes_ = 0;
};

}  // namespace

void order(Bars& bars) {
  nv::testkit::Kit kit(std::make_unique<MadeUpStore>());
  const NoRefusals watching;
  Crowd few(5, kFew), many(6, kMany);
  compare(kit, few, many, "", bars);
}

namespace {

/// Sets and moves objects without storing, then flushes.
void changeMany(nv::testkit::Kit& kit, Crowd& crowd, unsigned changes) {
  crowd.map.setAutoStore(false);
  for (unsigned done = 0; done < changes;)
    for (const auto id : crowd.ids.batch()) {
      (crowd.*kOperations<Crowd>[done / ShuffledIds::kBatch % 2].command)(id);
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
