/// A rule of a packet filter: the element of Firewall.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "containers/oobject.h"
#include "examples/firewall/match.h"
#include "platform/handler.h"

namespace firewall {

// The fields of a rule. They stand in the stores of devices: never change a number or a type.
inline constexpr nv::string_id kAction{1};
inline constexpr nv::string_id kInterface{2};
inline constexpr nv::string_id kSource{3};
inline constexpr nv::string_id kProtocol{4};
inline constexpr nv::string_id kPorts{5};
inline constexpr nv::string_id kComment{6};
inline constexpr nv::bool_id kDisabled{7};
/// Shown only.
inline constexpr nv::bool_id kProgram{8};
/// Stored only: the nearest rule of the program before this one.
inline constexpr nv::u32_id kBehind{9};

/// What the fields are called.
std::vector<nv::KeyInfo> dictionary();

/// What a user says of a rule, as it was typed. Empty: any.
struct RuleTexts {
  std::string action, interface, source, protocol, ports;
  std::string comment;    ///< one line, for people
  bool disabled = false;  ///< kept, but not part of the filter

  /// Why this is no proper rule, looked at alone; empty when it is one.
  std::string fault() const;
};

struct Rule : OObject {
  RuleTexts texts;
  Match match;  ///< of the texts; whatever when they have a fault
  /// The nearest rule of the program before this one, 0 for none. Since those stay where they are,
  /// it says where this one stands among them, whatever else is moved, added and removed.
  std::uint32_t behind = 0;
  /// It comes from the program, which makes it again at each start.
  bool isOfProgram = false;

  bool isStorable() override { return !isOfProgram; }
  std::string name() override { return label(); }
  /// Always writes all fields: what a set changes can then be put back, whatever it was.
  void getConfig(nv::message& out, std::uint32_t flags) override;
  /// Takes the fields that `in` holds; those that it lists as removed become empty. Others stay.
  void setConfig(const nv::message& in, std::uint32_t flags) override;

  /// `accept tcp 22 from 10.0.0.0/8`
  std::string label() const;
  /// Whether each packet that reaches `other` behind it has met this one first.
  bool covers(const Rule& other) const;
};

}  // namespace firewall
