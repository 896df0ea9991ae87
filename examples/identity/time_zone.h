/// What may be the time zone of a device.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace identity {

/// Why `zone` cannot be the name of a time zone; empty when it can: up to 64 letters, digits, '+',
/// '-', '_' and '/' between, which name a file below a directory of zones.
std::string zoneFault(std::string_view zone);

/// Why there is no such zone in `directory`; empty when there is one, or no such directory. `zone`
/// is without fault.
std::string missingZone(const std::filesystem::path& directory, const std::string& zone);

}  // namespace identity
