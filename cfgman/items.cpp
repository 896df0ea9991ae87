// Items of a manager: how they come, go and are walked.
#include <utility>

#include "cfgman/cfgman.h"
#include "cfgman/item.h"
#include "cfgman/item_order.h"
#include "cfgman/iterator.h"
#include "cfgman/name_index.h"

namespace key = nv::key;

namespace {
constexpr unsigned kLowestId = 1;
constexpr unsigned kHighestId = 0xfffffffd;
}  // namespace

CfgMan::ItemLink::~ItemLink() = default;
void CfgMan::ItemLink::release() { delete this; }

CfgMan::Item::~Item() {
  for (auto* const link : std::exchange(links, {})) link->release();
}

void CfgMan::Iterator::next() {
  if (item_ == nullptr) return;
  if (manager_->ordered) {
    item_ = manager_->order->next(*item_);
    return;
  }
  const auto at = manager_->items.lower_bound(item_->id + 1);
  item_ = at == manager_->items.end() ? nullptr : at->second;
}

nv::Allocator& CfgMan::allocator() {
  if (alloc == nullptr) setAllocator(kLowestId, kHighestId);
  return *alloc;
}

// An allocator that was replaced does not know the ids of earlier items; its range may reach into
// the reserved ids.
std::uint32_t CfgMan::claimId() {
  while (allocator().unused() != 0) {
    const auto id = alloc->allocate();
    if (id <= kHighestId && !items.contains(id)) return id;
  }
  return nv::kNoId;
}

bool CfgMan::isExternal(std::uint32_t id) const {
  const auto predicate = isExternalId;
  return predicate && predicate(id);
}

CfgMan::Item* CfgMan::makeItem(std::uint32_t id, bool stored) {
  auto* const item = new Item;
  item->id = id;
  item->store = stored;
  item->inTree = items.emplace(id, item).second;
  return item;
}

void CfgMan::dropItem(Item* item) {
  const auto id = item->id;
  const auto life = watch();
  const bool isForeign = isExternal(id);
  if (life.gone()) return;
  if (!isForeign && alloc != nullptr) alloc->free(id);
  names_->remove(*item);
  order->drop(*item);
  items.take(id);
  delete item;
}

CfgMan::Iterator CfgMan::plant(bool dynamic, void* cookie) {
  const auto id = claimId();
  if (id == nv::kNoId) return end();
  auto* const item = makeItem(id, !dynamic);
  item->cookie = cookie;
  if (dynamic) item->config.insert(key::dynamic, true);
  return {this, item};
}
