/// One queued change of one item.
#pragma once

#include <cstdint>

#include "cfgman/cfgman.h"

/// What an update brings. Queued by value: it names its item by id, since anything may have
/// happened to the item until its turn comes.
struct UpdateTask {
  enum class Source {
    outside,    ///< a command, a remote, the service
    record,     ///< the store, while it is read
    neighbour,  ///< a change of the order beside the item
  };

  Source source = Source::outside;
  std::uint32_t id = nv::kNoId;
  nv::message cfg = {};
  nv::message state = {};
  vset<unsigned> keys = {};
  nv::message request = {};
};
