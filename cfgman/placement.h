/// How an item leaves and takes a place in the user's order.
#pragma once

#include <cstdint>

#include "cfgman/cfgman.h"

class ItemOrder;

/// Moves one item during an update, keeps the stored chain, and posts the updates by which the
/// state of the item before it names the one that now follows.
///
/// The chain: record 0xfffffffe holds in key::nextId the id of the first stored item (0xffffffff:
/// none), and the configuration of each stored item holds there the id of the next; the last one
/// has none, or 0xffffffff. It skips the items that are not stored.
class Placement {
 public:
  Placement(CfgMan& manager, CfgMan::Item& item, std::uint32_t origin);

  /// The id of the item behind it, in the order that is kept for it: among the stored ones for a
  /// stored item. 0xffffffff when there is none.
  std::uint32_t nextId() const;
  /// Takes the item from its place and gives its neighbours in the chain to each other. The chain
  /// is written whatever the origin.
  void unlink();
  /// Puts the item before the one with id `before`; at the end for 0xffffffff, at the front when
  /// nobody has that id. The chain is not written for an item that comes from the store.
  void link(std::uint32_t before);

 private:
  /// The item before which `before` puts this one; null: at the end.
  CfgMan::Item* findPlace(std::uint32_t before, CfgMan::Item* front) const;
  CfgMan::Item* findStoredPlace(std::uint32_t before) const;
  void linkStored(std::uint32_t before);
  void unlinkStored();
  void tell(const CfgMan::Item& neighbour, nv::message state);
  /// Lets `previous`, or the head of the chain when null, name `next`.
  void writeChain(CfgMan::Item* previous, std::uint32_t next);

  CfgMan& manager_;
  ItemOrder& order_;
  CfgMan::Item& item_;
  std::uint32_t origin_;
};
