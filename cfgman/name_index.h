/// Default names: a prefix and a number one above the highest in use.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "cfgman/cfgman.h"

/// The names made of a manager's prefix and digits, greatest last, so that a default name costs
/// O(log n). Built with the first name asked for, and anew when the prefix has changed.
///
/// An item counts as long as an iteration over the manager meets it. Whoever changes its name or
/// its place in the order calls `remove` before and `add` after.
class NameIndex {
 public:
  explicit NameIndex(CfgMan& manager) : manager_(manager) {}

  void add(const CfgMan::Item& item);
  void remove(const CfgMan::Item& item);
  std::string nextName();

 private:
  /// Ordered as numbers of any length, leading zeros counted as digits.
  struct Entry {
    std::string digits;
    std::uint32_t id;
    bool operator<(const Entry& other) const;
  };

  std::optional<Entry> entryOf(const CfgMan::Item& item) const;
  bool isTrue(const Entry& entry) const;
  void build();

  CfgMan& manager_;
  std::optional<std::string> prefix_;  // none: not built
  std::set<Entry> entries_;
};
