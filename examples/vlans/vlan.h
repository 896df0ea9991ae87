/// A VLAN of a network box: what is kept of it, and what may be wrong with it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cfgman/cfgman.h"

namespace vlans {

// The fields of a VLAN beside its name, key::name. They stand in the stores of devices: never
// change a number or a type.
inline constexpr nv::u32_id kVid{1};
inline constexpr nv::string_id kParent{2};
inline constexpr nv::string_id kComment{3};
inline constexpr nv::bool_id kDisabled{4};
/// Live state, never stored.
inline constexpr nv::bool_id kUp{5};

/// What the fields are called.
std::vector<nv::KeyInfo> dictionary();
/// Has `manager` keep the fields that are configured.
void addConfigKeys(CfgMan& manager);

/// A VLAN as the network sees it.
struct Vlan {
  std::string name;  ///< of its interface
  std::string parent;
  std::uint32_t vid = 0;  ///< the number in each of its frames

  explicit Vlan(const nv::message& config);
  friend bool operator==(const Vlan&, const Vlan&) = default;
};

/// "office (VLAN 7 on eth0)"
std::string label(const nv::message& config);

/// Why this is no proper VLAN, looked at alone; empty when it is one.
std::string fault(const nv::message& config);

}  // namespace vlans
