/// The addresses of a host.
#pragma once

#include <string>
#include <vector>

#include "platform/addr6.h"

namespace hosts {

/// `2001:db8::7`; `192.0.2.7` for an IPv4-mapped address.
std::string addressText(const nv::addr6& address);

/// Why these cannot be the addresses of one host; empty when they can: 1 to 16 different ones, each
/// of which one host can have.
std::string addressesFault(const std::vector<nv::addr6>& addresses);

}  // namespace hosts
