/// The steps by which one change takes effect.
#pragma once

#include <cstdint>

#include "cfgman/cfgman.h"
#include "cfgman/update_task.h"

/// Carries out one UpdateTask, from finding the item to the reply. No other update of the manager
/// runs meanwhile, so the item stays; but service code may delete the manager in most phases.
class Update {
 public:
  Update(CfgMan& manager, UpdateTask&& task);
  void run();

 private:
  using Item = CfgMan::Item;

  // The phases, in order.
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
  void answerWithId();

  // Parts of phases.
  struct Inverse {
    unsigned request, undo;  ///< command codes
    const char* text;
  };
  bool create();
  std::uint32_t claimId();
  /// Answers with an error and returns false.
  bool refuse(unsigned code);
  void callHook();
  Inverse inverseOf() const;
  void place();
  void keepOwnPlace();
  void writeRecord();
  void answer(nv::message reply);

  /// Calls with the new configuration in the item and the old one in `cfg_`.
  template <class Call>
  void withNewConfig(Call call);
  void swapConfig();
  bool isRemoval() const { return cfg_.get(nv::key::absent) != 0; }

  CfgMan::Watch life_;
  CfgMan& manager_;  // if `life_` says so
  UpdateTask task_;

  Item* item_ = nullptr;
  std::uint32_t origin_ = 0;
  bool created_ = false;
  /// Whether the configuration is another one: keys of `configIds`, or a name given.
  bool configChanged_ = false;
  /// Whether the update removes the item; known once `apply` has had its say.
  bool goes_ = false;
  nv::message cfg_;       ///< the configuration to be; once that is in the item, the one before
  nv::message oldState_;  ///< the state as it was
  nv::message undo_;
  nv::message reply_;
  vset<unsigned> changed_;
};
