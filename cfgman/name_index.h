/// Default names: a prefix and a number one above the highest in use.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "cfgman/cfgman.h"
#include "platform/allocator.h"

/// The numbers in the names that are a manager's prefix and digits, so that a default name costs
/// O(log n). Built with the first name asked for, and anew when the prefix has changed.
///
/// An item counts as long as an iteration over the manager meets it. Whoever changes its name or
/// its place in the order calls `remove` before and `add` after.
class NameIndex {
 public:
  explicit NameIndex(CfgMan& manager) : manager_(manager) {}

  void add(const CfgMan::Item& item);
  void remove(const CfgMan::Item& item);
  /// To be taken before somebody may change the item's name in place, for `renamed` after it.
  struct Noted {
    std::string name;
    unsigned builds;
  };
  Noted note(const CfgMan::Item& item) const;
  void renamed(const CfgMan::Item& item, const Noted& before);
  /// Others may count from now on.
  void forget() { prefix_.reset(); }
  std::string nextName();

 private:
  /// Orders digits as numbers of any length, leading zeros counted.
  struct ByLength {
    bool operator()(std::string_view a, std::string_view b) const;
  };

  /// What follows the prefix in the name of an item that counts; empty when that is not digits.
  std::string_view digitsOf(const CfgMan::Item& item, std::string_view name) const;
  void take(std::string_view digits);
  std::string highest() const;
  void build();

  CfgMan& manager_;
  std::optional<std::string> prefix_;  // none: not built
  unsigned builds_ = 0;
  // Names mostly are numbered without gaps, and then stand in a few intervals.
  nv::Allocator numbers_{0, nv::kNoId};
  std::map<std::uint32_t, std::uint32_t> repeats_;  // how often beyond once
  std::multiset<std::string, ByLength> others_;     // with leading zeros, or more than nine digits
};
