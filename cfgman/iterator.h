/// A position among the items of a manager.
#pragma once

#include <iosfwd>

#include "cfgman/cfgman.h"

/// One item, or the end. Goes along the user's order in an ordered manager, where items without a
/// place are not met, otherwise by ascending id. Valid while its item is in the manager.
class CONFKIT_API CfgMan::Iterator {
 public:
  Iterator() = default;
  Iterator(CfgMan* manager, Item* item) : manager_(manager), item_(item) {}

  CfgMan* manager() const { return manager_; }
  /// Null at the end.
  Item* item() const { return item_; }
  /// Goes on; from the last item, and from one without a place in an ordered manager, to the end.
  void next();

  // The same for range-based loops.
  Item* operator*() const { return item_; }
  Iterator& operator++() { return next(), *this; }
  friend bool operator==(const Iterator&, const Iterator&) = default;

 private:
  CfgMan* manager_ = nullptr;
  Item* item_ = nullptr;
};

/// "*" the manager's prefix or address, ":" and the id in hexadecimal or "END"; "(null)" without a
/// manager.
CONFKIT_API std::ostream& operator<<(std::ostream& os, const CfgMan::Iterator& it);
