#include "examples/vlans/vlan.h"

#include "examples/support/texts.h"

namespace vlans {

namespace key = nv::key;

namespace {

constexpr std::uint32_t kHighestVid = 4094;

std::string vidFault(std::uint32_t vid) {
  if (vid >= 1 && vid <= kHighestVid) return "";
  return "a VLAN needs a vid from 1 to " + std::to_string(kHighestVid) + ", this one has " +
         std::to_string(vid);
}

}  // namespace

std::vector<nv::KeyInfo> dictionary() {
  return {{key::name.uid(), "name", "its interface; vlan1, vlan2... when none is given"},
          {kVid.uid(), "vid", "the number in its frames, 1 to 4094"},
          {kParent.uid(), "parent", "the device that it is on"},
          {kComment.uid(), "comment", "a line for people"},
          {kDisabled.uid(), "disabled", "kept, but not brought to the network"},
          {kUp.uid(), "up", "whether its parent has a link (not configured)"}};
}

void addConfigKeys(CfgMan& manager) {
  manager.configIds.merge({kVid.uid(), kParent.uid(), kComment.uid(), kDisabled.uid()});
}

Vlan::Vlan(const nv::message& config)
    : name(config.get(key::name)), parent(config.get(kParent)), vid(config.get(kVid)) {}

std::string label(const nv::message& config) {
  const Vlan vlan(config);
  return vlan.name + " (VLAN " + std::to_string(vlan.vid) + " on " + vlan.parent + ")";
}

std::string fault(const nv::message& config) {
  for (auto why : {examples::interfaceNameFault(config.view(key::name)), vidFault(config.get(kVid)),
                   examples::commentFault(config.view(kComment))})
    if (!why.empty()) return why;
  return "";
}

}  // namespace vlans
