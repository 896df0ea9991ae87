/// A neighbour that a user has made known, and the fields of what the kernel knows.
#pragma once

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "cfgman/cfgman.h"
#include "platform/addr6.h"

namespace neighbours {

// The fields of a neighbour. The first four stand in the stores of devices: never change a number
// or a type.
inline constexpr nv::addr6_id kAddress{1};
inline constexpr nv::string_id kHardware{2};
inline constexpr nv::string_id kDevice{3};
inline constexpr nv::string_id kComment{4};

// Fields of live records, never stored.

/// What a record is, by the name of the table that it comes from: "arp", "tcp", "udp6"...
inline constexpr nv::string_id kTable{5};
inline constexpr nv::u32_id kPort{6};
inline constexpr nv::addr6_id kPeer{7};
inline constexpr nv::u32_id kPeerPort{8};
inline constexpr nv::string_id kState{9};
inline constexpr nv::u32_id kUser{10};

/// What the fields are called.
std::vector<nv::KeyInfo> dictionary();
/// Has `manager` keep the fields that are configured.
void addConfigKeys(CfgMan& manager);

/// What tells neighbours apart: no two of a device have one address.
using Place = std::pair<std::string, std::array<unsigned char, 16>>;  // device, address
Place placeOf(const nv::message& config);

/// "192.0.2.7 on eth0"
std::string label(const nv::message& config);
/// Why this is no proper neighbour, looked at alone; empty when it is one.
std::string fault(const nv::message& config);

}  // namespace neighbours
