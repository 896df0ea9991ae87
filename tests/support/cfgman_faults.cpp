#include "tests/support/cfgman_faults.h"

#include <vector>

#include "cfgman/item.h"
#include "cfgman/item_order.h"

namespace test {
namespace {

namespace key = nv::key;
using Item = CfgMan::Item;

std::string fault(std::uint32_t id, const char* what) {
  return "item " + std::to_string(id) + " " + what;
}

std::string itemFault(const CfgMan& manager, std::uint32_t id, const Item& item) {
  if (item.id != id || !item.inTree) return fault(id, "stands under another id");
  if (id >= nv::kHeadId) return fault(id, "has a reserved id");
  if (item.exists() && item.config.get(key::objectId) != id)
    return fault(id, "has a configuration with another id");
  if (!item.exists() && item.ord != nullptr) return fault(id, "is absent and has a place");
  if (manager.ordered && item.exists() && item.ord == nullptr) return fault(id, "has no place");
  if (manager.curItem != nullptr || manager.curKeys != nullptr)
    return fault(id, "counts as being changed");
  const auto& ids = *manager.alloc;
  const bool isOwn =
      id >= ids.min() && id <= ids.max() && !(manager.isExternalId && manager.isExternalId(id));
  if (isOwn && !ids.isAllocated(id)) return fault(id, "has an id that is free");
  return {};
}

std::string orderFault(const CfgMan& manager, std::size_t placed) {
  const auto& order = *manager.order;
  std::vector<const Item*> stored;
  const Item* previous = nullptr;
  std::size_t met = 0;
  for (auto* item = order.first(); item != nullptr; item = order.next(*item)) {
    if (++met > placed) return fault(item->id, "stands in the order too often");
    if (manager.find(item->id) != item || item->ord->item != item)
      return fault(item->id, "stands in the order and is not there");
    if (order.previous(*item) != previous) return fault(item->id, "does not lead back");
    if (manager.positionsValid && previous != nullptr &&
        previous->ord->position >= item->ord->position)
      return fault(item->id, "has a position that does not ascend");
    if (item->store) stored.push_back(item);
    previous = item;
  }
  if (met != placed) return "places are missing in the order";

  const Item* next = order.firstStored();
  previous = nullptr;
  for (const auto* item : stored) {
    if (next != item) return fault(item->id, "stands elsewhere in the stored order");
    if (order.previousStored(*item) != previous) return fault(item->id, "is not led back to");
    previous = item;
    next = order.nextStored(*item);
  }
  return next == nullptr ? std::string() : fault(next->id, "is not stored");
}

}  // namespace

std::string faultOf(const CfgMan& manager) {
  std::size_t placed = 0;
  for (const auto& [id, item] : manager.items) {
    if (auto wrong = itemFault(manager, id, *item); !wrong.empty()) return wrong;
    if (item->ord != nullptr) ++placed;
  }
  if (!manager.ordered && placed > 0) return "there are places and no order";
  return orderFault(manager, placed);
}

}  // namespace test
