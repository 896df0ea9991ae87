/// The user's order of a manager's items.
#pragma once

#include <boost/intrusive/list.hpp>

#include "cfgman/cfgman.h"
#include "cfgman/item.h"

/// The place of one item.
struct CfgMan::OrdNode {
  using Hook =
      boost::intrusive::list_member_hook<boost::intrusive::link_mode<boost::intrusive::safe_link>>;

  explicit OrdNode(Item* owner) : item(owner) {}

  Item* item;
  /// Ascending along the order; 0xffffffff until it is set, see `CfgMan::updatePositions`.
  std::uint32_t position = nv::kNoId;
  Hook node;   ///< among all items that have a place
  Hook snode;  ///< among the stored ones; not linked for an item that is not stored
};

/// Two lists of the same nodes: all items that have a place, and the stored ones among them.
/// Neighbours cost O(1). Owns the nodes.
class CONFKIT_API ItemOrder {
 public:
  using Item = CfgMan::Item;
  using OrdNode = CfgMan::OrdNode;

  ItemOrder() = default;
  ~ItemOrder();
  ItemOrder(const ItemOrder&) = delete;
  ItemOrder& operator=(const ItemOrder&) = delete;

  // Neighbours; null when there is none, also of an item without a place.
  Item* first() const;
  Item* firstStored() const;
  Item* next(const Item& item) const;
  Item* previous(const Item& item) const;
  Item* nextStored(const Item& item) const;
  Item* previousStored(const Item& item) const;
  bool isAmongStored(const Item& item) const;

  /// Gives `item` its node, in no list yet.
  void addNode(Item& item);
  /// Each puts the item before `next`; at the end when that is null or not in the list itself.
  void insert(Item& item, Item* next);
  void insertStored(Item& item, Item* next);
  /// Takes the item out of both lists and frees its node. No effect without a place.
  void drop(Item& item);
  /// The first stored item behind `item` in the whole order but `but`, null when there is none.
  /// Walks the items in between that are not stored.
  Item* storedBehind(const Item& item, const Item& but) const;

  /// Numbers all nodes, 2 apart.
  void number();
  /// Numbers an item that was inserted at an end of the order; false when it stands between others,
  /// or the numbers have run out.
  bool numberNew(Item& item);

 private:
  template <OrdNode::Hook OrdNode::*hook>
  using List =
      boost::intrusive::list<OrdNode, boost::intrusive::member_hook<OrdNode, OrdNode::Hook, hook>,
                             boost::intrusive::constant_time_size<false>>;

  List<&OrdNode::node> all_;
  List<&OrdNode::snode> stored_;
};
