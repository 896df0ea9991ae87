/// A host that a resolver knows: the element of HostMap.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "containers/object.h"
#include "script/invoke_script.h"

namespace hosts {

// The fields of a host. They stand in the stores of devices: never change a number or a type.
inline constexpr nv::string_id kName{1};
inline constexpr nv::addr6_array_id kAddresses{2};
inline constexpr nv::string_id kComment{3};
inline constexpr nv::bool_id kDisabled{4};
inline constexpr nv::message_id kScript{5};  // as nv::InvokeScript says

struct Host : Object {
  std::string hostName;              ///< as it was typed; case makes no difference
  std::vector<nv::addr6> addresses;  ///< IPv4 as IPv4-mapped IPv6
  std::string comment;               ///< one line, for people
  bool disabled = false;             ///< kept, but not told to the resolver
  nv::InvokeScript script;           ///< run when the addresses change; none by default

  std::string name() override { return hostName; }
  /// Always writes all fields: what a set changes can then be put back, whatever it was. Clients do
  /// not see with whose rights the script runs: nobody could put that back.
  void getConfig(nv::message& out, std::uint32_t flags) override;
  /// Takes the fields that `in` holds; those that it lists as removed become empty. Others stay.
  /// Who sets the script has the rights in `in`; when they do not suffice `fault` says so.
  void setConfig(const nv::message& in, std::uint32_t flags) override;

  /// Why this is no proper host, looked at alone; empty when it is one.
  std::string fault() const;
  /// Runs the script with the name and the addresses as its words.
  void runScript() const;

 private:
  void setScript(const nv::message& in, std::uint32_t flags);

  std::string scriptFault_;  // of the last set
};

}  // namespace hosts
