#include "cfgman/item_order.h"

#include <iterator>

namespace {

constexpr std::uint32_t kFirstPosition = 0x80000000;
constexpr std::uint32_t kPositionStep = 2;
// Beyond these the numbers have run out at that end.
constexpr std::uint32_t kLowestPosition = 0x10;
constexpr std::uint32_t kHighestPosition = 0xfffffff0;

using OrdNode = CfgMan::OrdNode;
using Item = CfgMan::Item;

/// The neighbours of `item` in `list`, where `hook` links it; null at the ends, and when it is not
/// linked there.
template <class List>
Item* following(const List& list, const Item& item, OrdNode::Hook OrdNode::*hook) {
  if (item.ord == nullptr || !(item.ord->*hook).is_linked()) return nullptr;
  const auto at = std::next(list.iterator_to(*item.ord));
  return at == list.end() ? nullptr : at->item;
}
template <class List>
Item* preceding(const List& list, const Item& item, OrdNode::Hook OrdNode::*hook) {
  if (item.ord == nullptr || !(item.ord->*hook).is_linked()) return nullptr;
  const auto at = list.iterator_to(*item.ord);
  return at == list.begin() ? nullptr : std::prev(at)->item;
}

template <class List>
void insertInto(List& list, Item& item, const Item* next, OrdNode::Hook OrdNode::*hook) {
  const bool isLinked = next != nullptr && next->ord != nullptr && (next->ord->*hook).is_linked();
  list.insert(isLinked ? list.iterator_to(*next->ord) : list.end(), *item.ord);
}

}  // namespace

ItemOrder::~ItemOrder() {
  stored_.clear();
  all_.clear_and_dispose([](OrdNode* node) {
    node->item->ord = nullptr;
    delete node;
  });
}

Item* ItemOrder::first() const { return all_.empty() ? nullptr : all_.front().item; }
Item* ItemOrder::firstStored() const { return stored_.empty() ? nullptr : stored_.front().item; }
Item* ItemOrder::next(const Item& item) const { return following(all_, item, &OrdNode::node); }
Item* ItemOrder::previous(const Item& item) const { return preceding(all_, item, &OrdNode::node); }
Item* ItemOrder::nextStored(const Item& item) const {
  return following(stored_, item, &OrdNode::snode);
}
Item* ItemOrder::previousStored(const Item& item) const {
  return preceding(stored_, item, &OrdNode::snode);
}
bool ItemOrder::isAmongStored(const Item& item) const {
  return item.ord != nullptr && item.ord->snode.is_linked();
}

void ItemOrder::addNode(Item& item) { item.ord = new OrdNode(&item); }
void ItemOrder::insert(Item& item, Item* next) { insertInto(all_, item, next, &OrdNode::node); }
void ItemOrder::insertStored(Item& item, Item* next) {
  insertInto(stored_, item, next, &OrdNode::snode);
}

void ItemOrder::drop(Item& item) {
  if (item.ord == nullptr) return;
  if (item.ord->snode.is_linked()) stored_.erase(stored_.iterator_to(*item.ord));
  if (item.ord->node.is_linked()) all_.erase(all_.iterator_to(*item.ord));
  delete item.ord;
  item.ord = nullptr;
}

Item* ItemOrder::storedBehind(const Item& item, const Item& but) const {
  for (Item* at = next(item); at != nullptr; at = next(*at))
    if (at->store && at != &but) return at;
  return nullptr;
}

void ItemOrder::number() {
  auto position = kFirstPosition;
  for (auto& node : all_) {
    node.position = position;
    position += kPositionStep;
  }
}

bool ItemOrder::numberNew(Item& item) {
  auto& position = item.ord->position;
  const auto* const before = previous(item);
  const auto* const behind = next(item);
  if (before == nullptr && behind == nullptr) {
    position = kFirstPosition;
  } else if (behind == nullptr && before->ord->position < kHighestPosition) {
    position = before->ord->position + kPositionStep;
  } else if (before == nullptr && behind->ord->position > kLowestPosition) {
    position = behind->ord->position - kPositionStep;
  } else {
    return false;
  }
  return true;
}
