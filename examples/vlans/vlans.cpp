#include "examples/vlans/vlans.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <list>
#include <utility>

#include "cfgman/cfg_handler.h"
#include "cfgman/iterator.h"
#include "cfgman/notify_guard.h"
#include "cfgman/run_task.h"
#include "examples/support/network.h"
#include "examples/support/replace_file.h"
#include "examples/support/texts.h"
#include "examples/vlans/interfaces_file.h"
#include "examples/vlans/vlan_filter.h"
#include "platform/runner.h"

namespace vlans {

namespace key = nv::key;
using nv::message;

namespace {

struct BuiltIn {
  const char* name;
  std::uint32_t vid;
  const char* parent;
};
constexpr BuiltIn kBuiltIns[] = {{"lan", 1, "eth0"}, {"wan", 2, "eth1"}};

bool isUp(const std::filesystem::path& states, const std::string& device) {
  std::ifstream file(states / device / "operstate");
  std::string word;
  return file >> word && word == "up";
}

/// A field that a client removed is empty: each VLAN has all fields, so who mirrors it misses none.
void addMissing(message& cfg) {
  for (const auto id : {kParent, kComment})
    if (!cfg.has(id)) cfg.insert(id, "");
  if (!cfg.has(kDisabled)) cfg.insert(kDisabled, false);
}

void say(const std::string& what) { std::cerr << "vlans: " << what << std::endl; }

}  // namespace

Vlans::Vlans(Box box) : box_(std::move(box)) {
  manager_.namePrefix = "vlan";
  manager_.defcfg = {{kParent, box_.devices.empty() ? "" : box_.devices.front()},
                     {kComment, ""},
                     {kDisabled, false}};
  addConfigKeys(manager_);
  manager_.apply = [this](CfgMan*, Item* item, message& cfg, vset<unsigned>& keys, message& reply) {
    apply(item, cfg, keys, reply);
  };
  manager_.fillItemMsg = [this](CfgMan*, Item* item, message& out, std::uint32_t) {
    fillItemMsg(*item, out);
  };
  manager_.describe = label;
  manager_.mkSubscr = VlanFilter::make;
  manager_.links.push_back(this);
}

void Vlans::open(unsigned id) {
  plantBuiltIns();
  manager_.setStore("vlans", true);
  if (manager_.store->firstTime()) fillBuiltIns();
  runTasks();  // nobody can ask before everything is there
  noteNeighbours();
  runTasks();

  if (box_.withKernel) startKernel();
  pollDevices();
  bringOut();
  nv::getRunner().addBeforeSleep([watch = token_.watch()] {
    if (auto* const vlans = watch.get()) vlans->bringOut();
  });
  manager_.setHandler(id);
  manager_.handler->describe("vlans", dictionary());
}

void Vlans::runTasks() {
  while (manager_.runTask->run()) continue;
}

/// What was read from the store does not know in its state yet which VLAN follows; to lose that one
/// would be no change, of which nobody would be told.
void Vlans::noteNeighbours() {
  for (auto at = manager_.begin(); auto* const item = *at;) {
    const auto* const next = *++at;
    if (next) manager_.scheduleUpdate(item->id, {}, {{key::nextId, next->id}}, {}, {});
  }
}

std::size_t Vlans::count() {
  std::size_t found = 0;
  for (const auto* const item : manager_)
    if (item->exists()) ++found;
  return found;
}

// Before the store is read: the ids must be the same in each start.
void Vlans::plantBuiltIns() {
  for (std::size_t k = 0; k < std::size(kBuiltIns); ++k)
    builtIns_.emplace_back(manager_.plant(false, this).item());
}

void Vlans::fillBuiltIns() {
  for (std::size_t k = 0; k < std::size(kBuiltIns); ++k) {
    const auto& [name, vid, parent] = kBuiltIns[k];
    message cfg{{key::absent, 0}, {key::name, name}, {kVid, vid}, {kParent, parent}};
    manager_.scheduleUpdate(builtIns_[k]->id, std::move(cfg), {}, {}, {});
  }
}

// What the manager asks.

void Vlans::apply(Item* item, message& cfg, const vset<unsigned>& keys, message& reply) {
  if (cfg.get(key::absent) != 0) return;
  addMissing(cfg);
  // Undoing a move from the end takes the id of the next one away. Only a value moves an object.
  if (keys.has(key::nextId.uid()) && !cfg.has(key::nextId)) cfg.insert(key::nextId, nv::kNoId);
  const auto why = refusal(*item, cfg, keys);
  if (why.empty()) return;
  reply = nv::failedMsg(why);
  if (manager_.updateOrigin == CfgMan::kFromStore)
    say("stored object " + std::to_string(item->id) + " is left out: " + why);
}

/// A device may be missing when the service starts again: what is on it stays configured.
std::string Vlans::refusal(const Item& item, const message& cfg, const vset<unsigned>& keys) {
  if (auto why = fault(cfg); !why.empty()) return why;
  const Vlan vlan(cfg);
  const auto isDevice = [this](const std::string& name) {
    return std::find(box_.devices.begin(), box_.devices.end(), name) != box_.devices.end();
  };
  if (isDevice(vlan.name)) return "the name \"" + vlan.name + "\" is that of a device";
  if (keys.has(kParent.uid()) && manager_.updateOrigin != CfgMan::kFromStore &&
      !isDevice(vlan.parent))
    return "there is no device \"" + examples::shown(vlan.parent) + '"';
  const auto next = cfg.get(key::nextId, nv::kNoId);
  if (item.exists() && keys.has(key::nextId.uid()) && next != nv::kNoId && !manager_.find(next))
    return "there is no object " + std::to_string(next) + " to stand before";
  return index_.conflict(vlan, item.id);
}

/// The last VLAN says that none follows it: an end is a value too.
void Vlans::fillItemMsg(const Item& item, message& out) const {
  if (!item.exists()) return;
  const auto device = up_.find(item.config.get(kParent));
  out.insert(kUp, device != up_.end() && device->second);
  out.insert(key::nextId, nv::kNoId);
}

void Vlans::update(Item* item, const message& oldCfg, const message& newCfg, const message&,
                   const message&, const vset<unsigned>& keys) {
  if (keys.empty()) return;
  if (oldCfg.get(key::absent) == 0) index_.remove(Vlan(oldCfg));
  if (newCfg.get(key::absent) == 0) index_.add(Vlan(newCfg), item->id);
  outdated_ = true;
}

void Vlans::print(std::ostream& os) { os << "{VLANs: index, interfaces file and kernel}"; }

// What is done.

void Vlans::bringOut() {
  if (!std::exchange(outdated_, false)) return;
  writeFile();
  if (kernel_) tellKernel();
}

void Vlans::writeFile() {
  std::string text = "# Written by the vlans service. Changes made here are lost.\n";
  for (const auto* const item : manager_)
    if (item->exists()) text += interfacesStanza(item->config);
  const auto error = examples::replaceFile(box_.interfacesFile, text);
  if (error.empty()) return;
  say(error);
  retry_ = nv::Timer(kRetryInterval, [this] { outdated_ = true; });
}

void Vlans::startKernel() {
  auto why = examples::enterOwnNetwork();
  if (why.empty()) why = kernel_.emplace().addDevices(box_.devices);
  if (why.empty()) return;
  say("the kernel is left alone: " + why);
  kernel_.reset();
}

void Vlans::tellKernel() {
  std::map<std::string, Vlan> wanted;
  for (const auto* const item : manager_)
    if (const Vlan vlan(item->config); item->exists() && !item->config.get(kDisabled))
      wanted.emplace(vlan.name, vlan);
  const auto why = kernel_->bring(wanted);
  if (why.empty()) return;
  say("the kernel is left alone from here on: " + why);
  kernel_.reset();
}

void Vlans::pollDevices() {
  for (const auto& device : box_.devices)
    if (const bool up = isUp(box_.deviceStates, device); up != up_[device]) setUp(device, up);
  poll_ = nv::Timer(kPollInterval, [this] { pollDevices(); });
}

/// No update changes the state of a link, so each VLAN that is on the device is guarded.
void Vlans::setUp(const std::string& device, bool up) {
  std::list<NotifyGuard> guards;
  for (const auto* const item : manager_)
    if (item->config.view(kParent) == device) guards.emplace_back(&manager_, item->id);
  up_[device] = up;
}

}  // namespace vlans
