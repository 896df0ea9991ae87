/// The file through which a resolver learns of hosts: a line an address, the name after it.
#pragma once

#include <string>

#include "examples/hosts/host.h"

namespace hosts {

/// The lines of one host, which must be without fault; none for a disabled one.
std::string hostsLines(const Host& host);

}  // namespace hosts
