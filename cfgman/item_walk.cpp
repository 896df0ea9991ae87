#include "cfgman/item_walk.h"

#include "cfgman/item.h"

ItemWalk::ItemWalk(CfgMan::Iterator start) : manager_(start.manager()->watch()) { reach(start); }

std::optional<ItemWalk> ItemWalk::from(CfgMan& manager, std::uint32_t id) {
  if (id == nv::kNoId) return ItemWalk(manager.begin());
  auto* const item = manager.find(id);
  if (item == nullptr || (manager.ordered && item->ord == nullptr)) return {};
  return ItemWalk({&manager, item});
}

void ItemWalk::reach(CfgMan::Iterator at) {
  at_ = at;
  id_ = nextId_ = nv::kNoId;
  if (at.item() == nullptr) return;
  id_ = at.item()->id;
  at.next();
  if (at.item() != nullptr) nextId_ = at.item()->id;
}

bool ItemWalk::isThere() const {
  return !manager_.gone() && item() != nullptr && manager_.get()->find(id_) == item();
}

void ItemWalk::next() {
  auto* const manager = manager_.get();
  if (manager == nullptr) {
    at_ = {};
  } else if (isThere()) {
    reach(++at_);
  } else if (manager->ordered) {
    reach({manager, manager->find(nextId_)});
  } else {
    const auto behind = manager->items.lower_bound(id_ + 1);
    reach({manager, behind == manager->items.end() ? nullptr : behind->second});
  }
}
