/// What a device is called, by whom, and which of that counts: the element of Identity.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "containers/object.h"
#include "platform/handler.h"

namespace identity {

// The fields. They stand in the stores of devices: never change a number or a type.
inline constexpr nv::string_id kHostName{1};
inline constexpr nv::string_id kLocation{2};
inline constexpr nv::string_id kTimeZone{3};
inline constexpr nv::string_id kContact{4};
inline constexpr std::array kFields{kHostName, kLocation, kTimeZone, kContact};
/// Shown only: the values that count.
inline constexpr nv::message_id kInForce{5};

/// What the fields are called.
std::vector<nv::KeyInfo> dictionary();

// Who manages parts of an identity beside the user.
inline constexpr std::uint32_t kFleetController = 1;
inline constexpr std::uint32_t kAddressService = 2;

/// What one of them says, all four fields; an empty one is left to others.
using Values = std::array<std::string, kFields.size()>;
/// The values in a message; absent and removed ones are empty.
Values valuesIn(const nv::message& config);

struct Settings : Object {
  Values users;
  std::map<std::uint32_t, Values> parties;  ///< by managed id
  std::vector<std::uint32_t> arrivals;      ///< the keys of `parties`, who came first first

  /// What counts: of each field the value of the fleet controller, else of the user, else of the
  /// address service, else "localhost" and "UTC", which every device has.
  Values inForce() const;
  /// Why this is no proper identity, whatever the files of the system are; empty when it is one.
  std::string fault() const;

  std::string name() override { return "identity"; }
  /// Always writes all fields of the user: what a set changes can then be put back. What the
  /// parties say is in key::managedConfigs; what counts is shown to clients only.
  void getConfig(nv::message& out, std::uint32_t flags) override;
  /// Takes all from `in`.
  void setConfig(const nv::message& in, std::uint32_t flags) override;
};

}  // namespace identity
