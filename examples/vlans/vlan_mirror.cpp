#include "examples/vlans/vlan_mirror.h"

#include <ostream>
#include <utility>
#include <vector>

#include "cfgman/cfg_handler.h"
#include "cfgman/item.h"
#include "cfgman/iterator.h"
#include "cfgman/run_task.h"
#include "examples/vlans/vlan.h"
#include "examples/vlans/vlan_filter.h"
#include "platform/commands.h"

namespace vlans {

namespace key = nv::key;
using nv::message;

VlanMirror::VlanMirror() {
  addConfigKeys(manager_);
  manager_.stateIds.insert(kUp.uid());
  manager_.mkSubscr = VlanFilter::make;
  manager_.links.push_back(this);
  manager_.doCmd = [this](nv::Handler* handler, const message& cmd) {
    if (!nv::cmd::isChange(cmd.get(key::command))) return manager_.defDoCmd(cmd);
    handler->replyMessage(cmd, nv::failedMsg("this is a mirror: change what it shows"));
  };
}

void VlanMirror::open(unsigned id, std::uint32_t source) {
  manager_.setStore("vlans", false);
  while (manager_.runTask->run()) continue;  // nobody can ask before everything is there
  manager_.setHandler(id);
  manager_.handler->describe("vlan-mirror", dictionary());
  // What it told until now waits as updates: the end of catching up goes behind them.
  manager_.setRemote(source, nv::kNoId, [this] {
    manager_.runTask->post([watch = token_.watch()] {
      if (auto* const mirror = watch.get()) mirror->removeUnnamed();
    });
  });
}

void VlanMirror::removeUnnamed() {
  std::vector<std::uint32_t> unnamed;
  for (const auto* const item : manager_)
    if (!named_.contains(item->id)) unnamed.push_back(item->id);
  named_.clear();
  isCatchingUp_ = false;

  // Right after this task, before what was told since: that may bring one of the ids again.
  const auto before = std::exchange(manager_.runTask->running, true);
  for (const auto id : unnamed) manager_.scheduleUpdate(id, {{key::absent, 1}}, {}, {}, {});
  manager_.runTask->running = before;
}

void VlanMirror::update(CfgMan::Item* item, const message&, const message&, const message&,
                        const message&, const vset<unsigned>&) {
  if (isCatchingUp_ && manager_.updateOrigin == CfgMan::kFromService) named_.insert(item->id);
}

void VlanMirror::print(std::ostream& os) { os << "{mirror of VLANs}"; }

}  // namespace vlans
