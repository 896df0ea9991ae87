/// The VLANs of a network box: a configuration manager, and what is done with what it keeps.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cfgman/cfgman.h"
#include "cfgman/item.h"
#include "cfgman/link.h"
#include "examples/vlans/kernel_vlans.h"
#include "examples/vlans/vlan_index.h"
#include "platform/timer.h"

namespace vlans {

/// What the box is like. The defaults are those of the built-in VLANs.
struct Box {
  /// What VLANs can be on; each name one of an interface.
  std::vector<std::string> devices{"eth0", "eth1"};
  /// Written for ifupdown. Its directory must be there.
  std::filesystem::path interfacesFile = "/etc/network/interfaces.d/vlans";
  /// Holds `<device>/operstate` for each device, "up" while it has a link.
  std::filesystem::path deviceStates = "/sys/class/net";
  /// Whether to make the VLANs in the kernel too, in a network of this process alone.
  bool withKernel = false;
};

/// Keeps the VLANs in the user's order and refuses faulty ones; tells who watches whether they have
/// a link; brings those that are not disabled to a file for ifupdown, and to the kernel.
///
/// There are two built-in VLANs, "lan" and "wan" under the ids 1 and 2. A user may change them and
/// remove them; their ids stay theirs, and one that is added again is what it was before in all
/// that the add does not say.
///
/// File and kernel are brought up to date before the loop sleeps, when something changed: any
/// number of changes in one pass are one file, there before anybody is told of them. Both wait for
/// others: the disk, and `ip`. A file that cannot be written is one line on the standard error
/// stream and is tried again; a kernel that refuses is one line and then left alone.
class Vlans : private CfgMan::Link {
 public:
  /// How often the states of devices are read, in milliseconds.
  static constexpr unsigned kPollInterval = 500;
  /// How long after a file that could not be written it is tried again, in milliseconds.
  static constexpr unsigned kRetryInterval = 5000;

  explicit Vlans(Box box);
  virtual ~Vlans() = default;
  /// Reads the store, and then answers as handler `id`. Called once.
  void open(unsigned id);

  CfgMan& manager() { return manager_; }
  /// How many there are.
  std::size_t count();

 private:
  using Item = CfgMan::Item;

  void plantBuiltIns();
  void fillBuiltIns();
  void noteNeighbours();
  void runTasks();

  // What the manager asks.
  void apply(Item* item, nv::message& cfg, const vset<unsigned>& keys, nv::message& reply);
  std::string refusal(const Item& item, const nv::message& cfg, const vset<unsigned>& keys);
  void fillItemMsg(const Item& item, nv::message& out) const;
  void update(Item* item, const nv::message& oldCfg, const nv::message& newCfg,
              const nv::message& oldState, const nv::message& newState,
              const vset<unsigned>& keys) override;
  void print(std::ostream& os) override;

  // What is done.
  void bringOut();
  void writeFile();
  void startKernel();
  void tellKernel();
  void pollDevices();
  void setUp(const std::string& device, bool up);

  Box box_;
  std::vector<std::unique_ptr<Item>> builtIns_;  // the manager looks at them to its end
  CfgMan manager_;
  VlanIndex index_;
  bool outdated_ = true;
  std::optional<KernelVlans> kernel_;
  std::map<std::string, bool> up_;  // by device
  nv::Timer retry_, poll_;
  LifeToken<Vlans> token_{this};
};

}  // namespace vlans
