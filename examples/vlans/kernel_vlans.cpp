#include "examples/vlans/kernel_vlans.h"

#include "examples/support/network.h"

namespace vlans {
namespace {

/// No word of `arguments` means anything to a shell.
std::string ip(const std::string& arguments) { return examples::complaintOf("ip " + arguments); }

std::string addVlan(const Vlan& vlan) {
  auto fault = ip("link add link " + vlan.parent + " name " + vlan.name + " type vlan id " +
                  std::to_string(vlan.vid));
  return fault.empty() ? ip("link set " + vlan.name + " up") : fault;
}

}  // namespace

std::string KernelVlans::addDevices(const std::vector<std::string>& names) {
  for (const auto& name : names) {
    auto fault = ip("link add " + name + " type dummy");
    if (fault.empty()) fault = ip("link set " + name + " up");
    if (!fault.empty()) return fault;
  }
  return "";
}

/// Deletes first: a name or a number may go from one to another.
std::string KernelVlans::bring(const std::map<std::string, Vlan>& wanted) {
  for (auto at = made_.begin(); at != made_.end();) {
    const auto found = wanted.find(at->first);
    if (found != wanted.end() && found->second == at->second) {
      ++at;
      continue;
    }
    if (auto fault = ip("link delete " + at->first); !fault.empty()) return fault;
    at = made_.erase(at);
  }
  for (const auto& [name, vlan] : wanted) {
    if (made_.contains(name)) continue;
    if (auto fault = addVlan(vlan); !fault.empty()) return fault;
    made_.emplace(name, vlan);
  }
  return "";
}

}  // namespace vlans
