/// A host that a resolver knows: the element of HostMap.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "containers/object.h"

namespace hosts {

// The fields of a host. They stand in the stores of devices: never change a number or a type.
inline constexpr nv::string_id kName{1};
inline constexpr nv::addr6_array_id kAddresses{2};
inline constexpr nv::string_id kComment{3};
inline constexpr nv::bool_id kDisabled{4};

struct Host : Object {
  std::string hostName;              ///< as it was typed; case makes no difference
  std::vector<nv::addr6> addresses;  ///< IPv4 as IPv4-mapped IPv6
  std::string comment;               ///< one line, for people
  bool disabled = false;             ///< kept, but not told to the resolver

  std::string name() override { return hostName; }
  /// Always writes all four fields: what a set changes can then be put back, whatever it was.
  void getConfig(nv::message& out, std::uint32_t flags) override;
  /// Takes the fields that `in` holds; those that it lists as removed become empty. Others stay.
  void setConfig(const nv::message& in, std::uint32_t flags) override;

  /// Why this is no proper host, looked at alone; empty when it is one.
  std::string fault() const;
};

}  // namespace hosts
