/// The file through which ifupdown learns of VLANs.
#pragma once

#include <string>

#include "examples/vlans/vlan.h"

namespace vlans {

/// What ifupdown needs to bring up one VLAN, or nothing when it is disabled. The configuration must
/// be without fault: its name and parent become part of commands.
std::string interfacesStanza(const nv::message& config);

}  // namespace vlans
