/// The addresses of a host.
#pragma once

#include <string>
#include <vector>

#include "platform/addr6.h"

namespace hosts {

/// Why these cannot be the addresses of one host; empty when they can: 1 to 16 different ones, each
/// of which one host can have.
std::string addressesFault(const std::vector<nv::addr6>& addresses);

}  // namespace hosts
