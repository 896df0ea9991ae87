/// A subscriber that wants to hear of some VLANs only.
#pragma once

#include "cfgman/subscription.h"

namespace vlans {

/// Hears of the VLANs whose configured fields have the values that the subscription request holds:
/// one that names a parent, of that parent's VLANs, as they come in, change and leave.
class VlanFilter : public CfgMan::Subscription {
 public:
  /// Null when the request names no field: its subscriber hears of everything.
  static CfgMan::Subscription* make(const nv::message& req, bool);

  bool interesting(unsigned id, const nv::message& vlan) override;

 private:
  VlanFilter(const nv::message& req, const nv::message& wanted);

  nv::message wanted_;
};

}  // namespace vlans
