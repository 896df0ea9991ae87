/// Keys of a request that runs a script (cmd::runScript), and of its answer.
///
/// The request holds key::rights and key::scriptOrigin, `arguments` when there are any, and which
/// script: key::objectId or key::name at the handler that keeps scripts, `source` at the one that
/// keeps none.
#pragma once

#include "platform/ids.h"

namespace nv::run_key {

inline constexpr message_array_id arguments{0x450};
inline constexpr string_id source{101};

/// In an argument that is a word for the script.
inline constexpr string_id word{1};

// In the answer.

/// What the script wrote, standard output and error in one.
inline constexpr string_id output{102};
/// Its exit status; absent when it was killed.
inline constexpr u32_id status{103};

}  // namespace nv::run_key
