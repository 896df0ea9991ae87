/// The steps by which one change takes effect.
#pragma once

#include <cstdint>

#include "cfgman/cfgman.h"
#include "cfgman/update_task.h"

class Placement;

/// Carries out one UpdateTask, from finding the item to the reply. Made and run within one task.
class Update {
 public:
  Update(CfgMan& manager, UpdateTask task);
  void run();

 private:
  using Item = CfgMan::Item;

  // The phases, in order. What service code may end is asked for after each of them with `lost`.
  void noteOrigin();
  void findItem();
  void mergeOwnKeys();
  /// False: refused, and nothing has changed.
  bool createIfMissing();
  void giveName();
  void mergeState();
  void callApply();
  void rollBack();
  void publishUndo();
  void tellObservers();
  void placeAndStore();
  void removeIfGone();
  void answer(nv::message reply);

  // Parts of phases.
  struct Inverse {
    unsigned request, undo;  ///< command codes
    const char* text;
  };
  std::uint32_t claimId();
  void callHook();
  Inverse inverseOf() const;
  void place(Placement& placement);
  void keepOwnPlace();
  void writeRecord();
  /// Calls with the new configuration in the item and the old one in `cfg_`.
  template <class Call>
  void withNewConfig(Call call);
  /// Exchanges the item's configuration and `cfg_`.
  void swapConfig();

  bool isRemoval() const { return cfg_.get(nv::key::absent) != 0; }
  /// Whether the manager and the item outlived the service code that was called.
  bool isItemThere() const;
  /// The same, and answers the request when only the item is gone.
  bool lost();

  CfgMan::Watch watch_;
  CfgMan& manager_;
  UpdateTask task_;

  Item* item_ = nullptr;
  std::uint32_t origin_ = 0;
  bool created_ = false;
  /// Whether the item's configuration differs from before: keys of `configIds`, or a name given.
  bool configChanged_ = false;
  nv::message cfg_;       ///< the item's configuration to be
  nv::message oldState_;  ///< the item's state as it was
  nv::message undo_;
  nv::message reply_;
  vset<unsigned> changed_;
  std::uint64_t treeSeen_ = 0;  ///< the manager's count of changes when `item_` was known to be there
};
