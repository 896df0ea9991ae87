#include "examples/vlans/vlan_index.h"

namespace vlans {
namespace {

/// The object under `key` when it is another one than `id`.
template <class Map>
std::uint32_t otherHolder(const Map& map, const typename Map::key_type& key, std::uint32_t id) {
  const auto found = map.find(key);
  return found == map.end() || found->second == id ? nv::kNoId : found->second;
}

}  // namespace

void VlanIndex::add(const Vlan& vlan, std::uint32_t id) {
  byName_[vlan.name] = id;
  byVid_[{vlan.parent, vlan.vid}] = id;
}

void VlanIndex::remove(const Vlan& vlan) {
  byName_.erase(vlan.name);
  byVid_.erase({vlan.parent, vlan.vid});
}

std::string VlanIndex::conflict(const Vlan& vlan, std::uint32_t id) const {
  if (const auto other = otherHolder(byName_, vlan.name, id); other != nv::kNoId)
    return "the name \"" + vlan.name + "\" is taken by object " + std::to_string(other);
  if (const auto other = otherHolder(byVid_, {vlan.parent, vlan.vid}, id); other != nv::kNoId)
    return "vid " + std::to_string(vlan.vid) + " on " + vlan.parent + " is taken by object " +
           std::to_string(other);
  return "";
}

}  // namespace vlans
