/// A process that talks to services and is none itself.
#pragma once

#include <filesystem>

#include "platform/export.h"

namespace nv {

/// Puts this process together as a client of the bus in `busDirectory`: no store, no address of its
/// own. Posts and follows work from then on, while the loop runs. The clock is the real one.
CONFKIT_API void connectBus(const std::filesystem::path& busDirectory);

}  // namespace nv
