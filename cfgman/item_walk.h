/// A walk over a manager's items during which service code may change them.
#pragma once

#include <cstdint>
#include <optional>

#include "cfgman/cfgman.h"
#include "cfgman/iterator.h"

/// Goes on from the present item while that is there. From one that was removed meanwhile it goes
/// on to the next higher id, in an ordered manager to the item that stood behind it when it was
/// reached. Ends with the manager.
class ItemWalk {
 public:
  explicit ItemWalk(CfgMan::Iterator start);
  /// A walk that begins at item `id`, or at the first one for nv::kNoId. None when there is no such
  /// item, or none that has a place in the order: nothing could be found behind it.
  static std::optional<ItemWalk> from(CfgMan& manager, std::uint32_t id);

  /// Null at the end.
  CfgMan::Item* item() const { return at_.item(); }
  const CfgMan::Iterator& position() const { return at_; }
  std::uint32_t id() const { return id_; }
  /// Whether the present item is still there.
  bool isThere() const;
  void next();

 private:
  void reach(CfgMan::Iterator at);

  LifeToken<CfgMan>::Watch manager_;
  CfgMan::Iterator at_;
  std::uint32_t id_ = nv::kNoId;
  std::uint32_t nextId_ = nv::kNoId;
};
