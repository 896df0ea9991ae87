/// Whether one field is the same in two messages.
#pragma once

#include "platform/message.h"

namespace nv {

/// True when neither message holds the field `uid`, or both do with equal values: every byte of a
/// string, byte sequence, flat form or address, the elements of an array in order. Removal lists
/// play no part. A `uid` of no type is false, whatever the messages hold; `merge` sees no change
/// there. `second` is a copy of the caller's message; who compares many keys pays it for each.
CONFKIT_API bool isEqual(const message& first, message second, unsigned uid);

}  // namespace nv
