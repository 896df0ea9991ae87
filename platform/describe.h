/// Keys of the answer to cmd::describe: what a handler tells clients of itself.
///
/// The answer holds key::name (the word that names the handler), key::count (how many objects it
/// has; absent when that means nothing), key::objects (its dictionary: one message a key) and
/// `handlers`.
#pragma once

#include "platform/ids.h"

namespace nv::describe_key {

// In the answer.

/// Ids of the handlers registered in the process, ascending.
inline constexpr u32_array_id handlers{5};

// In an entry of the dictionary.

/// Type tag | field id.
inline constexpr u32_id uid{1};
/// What people type for it: letters, digits and '-'.
inline constexpr string_id word{2};
/// One line that says what it is.
inline constexpr string_id line{4};

}  // namespace nv::describe_key
