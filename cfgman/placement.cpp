#include "cfgman/placement.h"

#include <utility>

#include "cfgman/item.h"
#include "cfgman/item_order.h"
#include "cfgman/update_task.h"

namespace key = nv::key;

namespace {
std::uint32_t idOf(const CfgMan::Item* item) { return item ? item->id : nv::kNoId; }
}  // namespace

Placement::Placement(CfgMan& manager, CfgMan::Item& item, std::uint32_t origin)
    : manager_(manager), order_(*manager.order), item_(item), origin_(origin) {}

std::uint32_t Placement::nextId() const {
  return idOf(item_.store ? order_.nextStored(item_) : order_.next(item_));
}

void Placement::unlink() {
  if (item_.store && manager_.store && order_.isAmongStored(item_)) unlinkStored();
  if (const auto* const previous = order_.previous(item_)) {
    const auto* const next = order_.next(item_);
    nv::message state{{key::removals, {}}};
    if (next)
      state.insert(key::nextId, next->id);
    else
      state.append(key::removals, key::nextId.uid());
    tell(*previous, std::move(state));
  }
  order_.drop(item_);
}

void Placement::unlinkStored() {
  auto* const previous = order_.previousStored(item_);
  const auto* const next = order_.nextStored(item_);
  if (previous == nullptr || next != nullptr) return writeChain(previous, idOf(next));
  previous->config.remove(key::nextId);
  manager_.store->set(previous->id, previous->config);
}

void Placement::writeChain(CfgMan::Item* previous, std::uint32_t next) {
  if (previous == nullptr) return manager_.store->set(nv::kHeadId, {{key::nextId, next}});
  previous->config.insert(key::nextId, next);
  manager_.store->set(previous->id, previous->config);
}

void Placement::link(std::uint32_t before) {
  order_.addNode(item_);
  if (manager_.store && item_.store) linkStored(before);
  order_.insert(item_, findPlace(before, order_.first()));
  if (const auto* const previous = order_.previous(item_))
    tell(*previous, {{key::nextId, item_.id}});
  if (!order_.numberNew(item_)) manager_.positionsValid = false;
}

void Placement::linkStored(std::uint32_t before) {
  order_.insertStored(item_, findStoredPlace(before));
  if (origin_ != CfgMan::kFromStore) writeChain(order_.previousStored(item_), item_.id);
}

CfgMan::Item* Placement::findPlace(std::uint32_t before, CfgMan::Item* front) const {
  if (auto* const next = manager_.find(before)) return next;
  return before == nv::kNoId ? nullptr : front;
}

CfgMan::Item* Placement::findStoredPlace(std::uint32_t before) const {
  auto* const next = findPlace(before, order_.firstStored());
  if (next == nullptr || next->store) return next;
  return order_.storedBehind(*next, item_);
}

void Placement::tell(const CfgMan::Item& neighbour, nv::message state) {
  manager_.post({UpdateTask::Source::neighbour, neighbour.id, {}, std::move(state), {}, {}});
}
