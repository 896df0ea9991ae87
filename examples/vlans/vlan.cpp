#include "examples/vlans/vlan.h"

#include <algorithm>

#include "examples/support/texts.h"

namespace vlans {

namespace key = nv::key;

namespace {

constexpr std::size_t kLongestName = 15;  // the kernel's
constexpr std::uint32_t kHighestVid = 4094;

// Not the functions of the C library: what a name is does not depend on the locale.
bool isLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}
bool isNameCharacter(char c) { return isLetterOrDigit(c) || c == '-' || c == '_' || c == '.'; }

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

std::string nameFault(std::string_view name) {
  const auto quoted = '"' + examples::shown(name) + '"';
  if (name.empty()) return "an interface needs a name";
  if (name.size() > kLongestName)
    return quoted + " is no interface name: it has more than 15 characters";
  if (!std::all_of(name.begin(), name.end(), isNameCharacter))
    return quoted + " is no interface name: it may hold letters, digits, '-', '_' and '.' only";
  if (!isLetterOrDigit(name.front()))
    return quoted + " is no interface name: it begins with neither a letter nor a digit";
  return "";
}

std::string fault(const nv::message& config) {
  for (auto why : {nameFault(config.view(key::name)), vidFault(config.get(kVid)),
                   examples::commentFault(config.view(kComment))})
    if (!why.empty()) return why;
  return "";
}

}  // namespace vlans
