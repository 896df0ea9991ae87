/// Keys of the answer to cmd::getUndo: the last undo records of a handler, newest first, in
/// key::objects.
#pragma once

#include "platform/ids.h"

namespace nv::undo_key {

// In a record.

/// Counts the records of the process from 1 on; never used twice.
inline constexpr u32_id number{1};
/// A text for people: what was done.
inline constexpr string_id description{2};
/// The command that reverts the change, without a route.
inline constexpr message_id command{3};
/// The request that made the change; left out when it is longer than 16 KiB.
inline constexpr message_id request{4};
/// Where the command goes: the route of the handler that published the record.
inline constexpr u32_array_id route{5};

}  // namespace nv::undo_key
