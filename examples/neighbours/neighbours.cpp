#include "examples/neighbours/neighbours.h"

#include <iostream>
#include <utility>

#include "cfgman/cfg_handler.h"
#include "cfgman/item.h"
#include "cfgman/run_task.h"
#include "examples/neighbours/live_records.h"

namespace neighbours {

namespace key = nv::key;
using nv::message;

Neighbours::Neighbours(std::filesystem::path tables) : tables_(std::move(tables)) {
  addConfigKeys(manager_);
  manager_.apply = [this](CfgMan*, Item* item, message& cfg, vset<unsigned>&, message& reply) {
    apply(*item, cfg, reply);
  };
  manager_.describe = label;
  manager_.links.push_back(this);
}

void Neighbours::open(unsigned id) {
  manager_.setStore("neighbours", false);
  while (manager_.runTask->run()) continue;  // nobody can ask before everything is there
  manager_.setHandler(id);
  manager_.handler->describe("neighbours", dictionary());
  setCm(&manager_);
}

GetallState* Neighbours::newState(const message& request) {
  const auto client = request.get(key::requester);
  if (open_->size() >= kMost || open_->count(client) >= kMostOfOneClient) return nullptr;
  const auto leave = [open = open_, at = open_->insert(client)](void*) { open->erase(at); };
  return new LiveRecords(tables_, {open_.get(), leave});
}

std::uint32_t Neighbours::count(const message&) {
  return static_cast<std::uint32_t>(manager_.items.size());
}

void Neighbours::apply(const Item& item, const message& cfg, message& reply) const {
  if (cfg.get(key::absent) != 0) return;
  auto why = fault(cfg);
  const auto taken = byPlace_.find(placeOf(cfg));
  if (why.empty() && taken != byPlace_.end() && taken->second != item.id)
    why = label(cfg) + " is object " + std::to_string(taken->second);
  if (why.empty()) return;
  reply = nv::failedMsg(why);
  if (manager_.updateOrigin == CfgMan::kFromStore)
    std::cerr << "neighbours: stored object " << item.id << " is left out: " << why << std::endl;
}

void Neighbours::update(Item* item, const message& oldCfg, const message& newCfg, const message&,
                        const message&, const vset<unsigned>&) {
  if (oldCfg.get(key::absent) == 0) byPlace_.erase(placeOf(oldCfg));
  if (newCfg.get(key::absent) == 0) byPlace_[placeOf(newCfg)] = item->id;
}

void Neighbours::print(std::ostream& os) { os << "{neighbours: index of addresses}"; }

}  // namespace neighbours
