/// The configurations that managing parties keep inside a holder's object.
#pragma once

#include <cstdint>

#include "platform/message.h"

namespace nv {

/// Merges `request` into the entry of `party` in the key::managedConfigs array of `full`: the first
/// one whose key::managedId is `party`. Without one it goes to the end as a new entry. A request
/// with key::absent drops the entry instead. The array goes with its last entry.
void mergeManaged(message& full, const message& request, std::uint32_t party);

}  // namespace nv
