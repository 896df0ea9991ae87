/// The parts of `cfgman_bench`, and the manager that they drive.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "bench/support/bars.h"
#include "bench/support/made_up_store.h"
#include "cfgman/cfg_handler.h"
#include "cfgman/cfgman.h"
#include "cfgman/item.h"
#include "cfgman/run_task.h"
#include "platform/commands.h"
#include "platform/looper.h"

namespace bench {

void oneTask(Bars& bars);
void thousandAndMillion(Bars& bars);
void runOfUnstored(Bars& bars);
void loading(Bars& bars);
void guardedChange(Bars& bars);
void sixteenClients(Bars& bars);

/// A command of a client to handler `address`, as the bus hands it over.
inline nv::message command(unsigned code, std::uint32_t address, nv::message fields) {
  fields.insert(nv::key::command, code).insert(nv::key::rights, 0x7fffffff);
  fields.insert(nv::key::route, {address}).insert(nv::key::requester, {0xcfff0001, 7});
  return std::move(fields.insert(nv::key::tag, 1));
}

/// A manager in this process.
class Manager {
 public:
  explicit Manager(std::uint32_t address) : address_(address) {
    cm.namePrefix = "vlan";
    cm.configIds.insert(kTag.uid());
    cm.setHandler(address);
  }

  /// Hands a command over and lets it take effect.
  void send(unsigned code, nv::message fields) {
    nv::getLooper()->deliver(*cm.handler, command(code, address_, std::move(fields)));
    runAll();
  }
  void runAll() {
    while (tasks.run()) continue;
  }

  CfgMan::RunTask tasks;
  CfgMan cm{&tasks};

 private:
  std::uint32_t address_;
};

}  // namespace bench
