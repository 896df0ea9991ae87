/// What a configuration manager calls after every update.
#pragma once

#include <iosfwd>

#include "cfgman/cfgman.h"
#include "cfgman/vset.h"

/// An observer of a manager. Entered in `CfgMan::links` by its owner, who takes it out again before
/// it is destroyed; an observer may do so from within `update`.
class CONFKIT_API CfgMan::Link {
 public:
  /// After each accepted update, also one that changed nothing (`keys` is then empty: do nothing).
  /// The item holds `newCfg` while this runs. What is posted from here runs right after the update,
  /// unless it has to wait until the store is read.
  /// An item that was just made has key::absent 1 in `oldCfg`, one that goes has it in `newCfg`.
  virtual void update(Item* item, const nv::message& oldCfg, const nv::message& newCfg,
                      const nv::message& oldState, const nv::message& newState,
                      const vset<unsigned>& keys) = 0;
  /// Writes what this is, on one line, for `CfgMan::dump`.
  virtual void print(std::ostream& os) = 0;

 protected:
  ~Link() = default;
};
