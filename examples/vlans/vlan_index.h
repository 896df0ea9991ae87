/// Which VLAN has a name, and which has a number on a device.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "examples/vlans/vlan.h"

namespace vlans {

/// Answers without a look at all VLANs. No two in it have one name, or one number on one device.
class VlanIndex {
 public:
  void add(const Vlan& vlan, std::uint32_t id);
  void remove(const Vlan& vlan);

  /// Why object `id` cannot be `vlan` beside the others; empty when it can.
  std::string conflict(const Vlan& vlan, std::uint32_t id) const;

 private:
  std::map<std::string, std::uint32_t> byName_;
  std::map<std::pair<std::string, std::uint32_t>, std::uint32_t> byVid_;  // (parent, vid)
};

}  // namespace vlans
