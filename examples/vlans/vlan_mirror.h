/// A copy of the VLANs of another process, for those who want them when that one is not there.
#pragma once

#include <cstdint>
#include <unordered_set>

#include "cfgman/cfgman.h"
#include "cfgman/link.h"

namespace vlans {

/// Follows the VLANs service and keeps what it says of each VLAN under the same id, in a store of
/// its own: the configuration with the id of the next VLAN, and, not stored, whether it has a link.
/// Takes no changes from others. It answers from its store until the other one is there, and is in
/// step again when the other one has told everything: then it removes what was not named.
class VlanMirror : private CfgMan::Link {
 public:
  VlanMirror();
  virtual ~VlanMirror() = default;
  /// Reads the store, then answers as handler `id` and follows the handler at `source`. Called
  /// once.
  void open(unsigned id, std::uint32_t source);

  CfgMan& manager() { return manager_; }

 private:
  void removeUnnamed();
  /// Notes what the other one names.
  void update(CfgMan::Item* item, const nv::message& oldCfg, const nv::message& newCfg,
              const nv::message& oldState, const nv::message& newState,
              const vset<unsigned>& keys) override;
  void print(std::ostream& os) override;

  CfgMan manager_;
  bool isCatchingUp_ = true;
  std::unordered_set<std::uint32_t> named_;  // while catching up
  LifeToken<VlanMirror> token_{this};
};

}  // namespace vlans
