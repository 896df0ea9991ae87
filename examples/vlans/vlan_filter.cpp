#include "examples/vlans/vlan_filter.h"

#include <algorithm>

#include "examples/vlans/vlan.h"
#include "message/field_ops.h"

namespace vlans {

VlanFilter::VlanFilter(const nv::message& req, const nv::message& wanted)
    : Subscription(req, req.get(nv::key::getFlags, nv::kDefaultFlags)), wanted_(wanted) {}

CfgMan::Subscription* VlanFilter::make(const nv::message& req, bool) {
  nv::message wanted;
  for (const auto uid :
       {nv::key::name.uid(), kVid.uid(), kParent.uid(), kComment.uid(), kDisabled.uid()})
    nv::copy(&wanted, req, uid);
  return wanted.empty() ? nullptr : new VlanFilter(req, wanted);
}

bool VlanFilter::interesting(unsigned, const nv::message& vlan) {
  return std::all_of(wanted_.begin(), wanted_.end(),
                     [&](const nv::field& field) { return vlan.find(field.uid()) == field; });
}

}  // namespace vlans
