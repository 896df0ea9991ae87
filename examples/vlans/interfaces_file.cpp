#include "examples/vlans/interfaces_file.h"

namespace vlans {

std::string interfacesStanza(const nv::message& config) {
  if (config.get(kDisabled)) return "";
  const Vlan vlan(config);
  const auto comment = config.get(kComment);
  // Something stands behind the comment: a backslash at its end would swallow the next line.
  return "\n# " + comment + (comment.empty() ? "" : ": ") + label(config) + '\n' +  //
         "auto " + vlan.name + '\n' +                                               //
         "iface " + vlan.name + " inet manual\n" +                                  //
         "    pre-up ip link add link " + vlan.parent + " name " + vlan.name + " type vlan id " +
         std::to_string(vlan.vid) + '\n' +                  //
         "    up ip link set " + vlan.name + " up\n" +      //
         "    down ip link set " + vlan.name + " down\n" +  //
         "    post-down ip link delete " + vlan.name + '\n';
}

}  // namespace vlans
