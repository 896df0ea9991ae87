// One update task against the copies and merges that it cannot do without.
#include <array>
#include <cstdio>

#include <benchmark/benchmark.h>

#include "bench/cfgman_bench.h"
#include "bench/support/allocations.h"
#include "bench/support/no_refusals.h"
#include "message/merge.h"
#include "testing/kit.h"

namespace bench {

namespace {

constexpr std::uint32_t kAddress = 5;
constexpr std::uint32_t kItems = 100;
constexpr unsigned kTurns = 200;
constexpr unsigned kCommands = 200;  // a turn
constexpr std::size_t kOwnKeys = 8;

/// What a client sends for object `n`: one key, or a whole form.
nv::message oneKey(unsigned n) {
  return {{nv::key::objectId, 1 + n % kItems}, {nv::key::cfgText, "text " + std::to_string(n)}};
}
nv::message wholeForm(unsigned n) {
  return {{nv::key::objectId, 1 + n % kItems},
          {nv::key::name, "vlan" + std::to_string(1000 + n)},
          {nv::key::cfgText, "text " + std::to_string(n)},
          {nv::key::cfgFlagA, n / kItems % 2 == 0},
          {nv::key::cfgFlagD, n / kItems % 2 == 1}};
}

struct Cost {
  Fastest time;  ///< of one command
  double allocations = 0;
};

template <class Work>
void measure(Cost& cost, Work work) {
  const auto before = allocations();
  cost.time.take(timeOf(work) / kCommands);
  cost.allocations = static_cast<double>(allocations() - before) / kCommands;
}

/// Three copies of each command, and a merge over the keys into the configuration, with undo.
void copyAndMerge(const std::vector<nv::message>& commands, const vset<unsigned>& keys,
                  nv::message& config) {
  for (const auto& command : commands) {
    std::array<nv::message, 3> copies{command, command, command};
    benchmark::DoNotOptimize(copies);
    nv::message undo;
    for (const auto uid : keys)
      benchmark::DoNotOptimize(nv::merge(config, command, &config, &undo, uid));
    benchmark::DoNotOptimize(undo);
  }
}

void compare(const char* what, nv::message (*fields)(unsigned), double mostAllocations,
             Bars& bars) {
  nv::testkit::Kit kit;
  const NoRefusals watching;
  Manager manager(kAddress);
  manager.cm.configIds = CfgMan().configIds;  // eight
  if (manager.cm.configIds.size() != kOwnKeys) std::abort();
  for (std::uint32_t n = 0; n < kItems; ++n) manager.send(nv::cmd::addObj, fields(n));
  nv::message config = manager.cm.find(1)->config;

  Cost task, peer;
  for (unsigned turn = 0, n = 0; turn < kTurns; ++turn) {
    std::vector<nv::message> commands;
    for (unsigned k = 0; k < kCommands; ++k)
      commands.push_back(command(nv::cmd::setObj, kAddress, fields(n++)));
    measure(task, [&] {
      for (const auto& command : commands) {
        nv::getLooper()->deliver(*manager.cm.handler, command);
        manager.runAll();
      }
      kit.settle();
    });
    measure(peer, [&] { copyAndMerge(commands, manager.cm.configIds, config); });
  }
  std::printf("%s: task %.0f ns, %.2f allocations; copies and merges %.0f ns, %.2f allocations\n",
              what, task.time.time() * 1e9, task.allocations, peer.time.time() * 1e9,
              peer.allocations);
  bars.atMost(std::string("task / copies and merges, ") + what, task.time.time() / peer.time.time(),
              12);
  bars.atMost(std::string("heap allocations of a task, ") + what, task.allocations,
              mostAllocations);
}

}  // namespace

void oneTask(Bars& bars) {
  // The queued task and its node, the changed keys, the list of observers, the undo record's two
  // commands; three routes in the bus. The undo log grows, and the larger form makes its record and
  // its description longer than what these hold in place.
  compare("set of one key", oneKey, 10, bars);
  compare("set of four keys", wholeForm, 12, bars);
}

}  // namespace bench
