/// In which order the records of a store become items.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/store.h"

/// The ids of all records in the order in which their items are to be added, each before the item
/// that its key::nextId names, so that the stored order comes back: from the end of the chain to
/// its front. Each record comes once, however damaged the chain is:
///
/// - one that names itself, no record, or none of the ids that items have, is the end of a chain;
/// - a cycle is broken at its smallest id;
/// - what nothing leads to comes last, ascending.
std::vector<std::uint32_t> loadingOrder(const nv::Store& store);
