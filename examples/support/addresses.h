/// IP addresses as text. IPv4 is held as IPv4-mapped IPv6.
#pragma once

#include <optional>
#include <string>

#include "platform/addr6.h"

namespace examples {

/// `2001:db8::7`; `192.0.2.7` for an IPv4-mapped address.
std::string addressText(const nv::addr6& address);
/// None when it is no address.
std::optional<nv::addr6> addressFrom(const std::string& text);

/// " is a multicast address" and the like; empty when one host can have the address.
std::string hostAddressFault(const nv::addr6& address);

}  // namespace examples
