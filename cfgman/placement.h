/// How an item leaves and takes a place in the user's order.
#pragma once

#include <cstdint>
#include <vector>

#include "cfgman/cfgman.h"

class ItemOrder;

/// Moves one item during an update, keeps the stored chain, and gathers what the neighbours have to
/// learn.
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
  /// Posts the updates by which the neighbours' state names the items that now follow them.
  void tellNeighbours();

 private:
  /// Somebody to tell: item `id` gets `state` merged.
  struct News {
    std::uint32_t id;
    nv::message state;
  };

  /// The item before which `before` puts this one; null: at the end.
  CfgMan::Item* findPlace(std::uint32_t before, CfgMan::Item* front) const;
  CfgMan::Item* findStoredPlace(std::uint32_t before) const;
  void linkStored(std::uint32_t before);
  void unlinkStored();
  /// Lets `previous`, or the head of the chain when null, name `next`.
  void writeChain(CfgMan::Item* previous, std::uint32_t next);

  CfgMan& manager_;
  ItemOrder& order_;
  CfgMan::Item& item_;
  std::uint32_t origin_;
  std::vector<News> news_;
};
