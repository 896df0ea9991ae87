/// VLANs in the kernel, in a network of this process alone.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "examples/vlans/vlan.h"

namespace vlans {

/// Makes and deletes interfaces by running `ip`, found by PATH, and waiting for its end. Each
/// operation returns nothing, or the line in which `ip` said why not; what it was at is then open.
class KernelVlans {
 public:
  /// Devices to stand in for those of the machine, which a new network does not have.
  std::string addDevices(const std::vector<std::string>& names);
  /// Makes and deletes VLANs until there are those of `wanted`, by name. They are without fault.
  std::string bring(const std::map<std::string, Vlan>& wanted);

 private:
  std::map<std::string, Vlan> made_;
};

}  // namespace vlans
