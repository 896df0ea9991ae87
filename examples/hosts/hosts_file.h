/// The file through which a resolver learns of hosts: a line an address, the name after it.
#pragma once

#include <filesystem>
#include <string>

#include "examples/hosts/host.h"

namespace hosts {

/// The lines of one host, which must be without fault; none for a disabled one.
std::string hostsLines(const Host& host);

/// Puts `text` in the place of `file`: who opens it reads the old text or the new one, never a
/// part, also after a power failure. Returns when the new one is on disk; empty, or a line that
/// says why it is not. Then the old one is still there.
std::string replaceFile(const std::filesystem::path& file, const std::string& text);

}  // namespace hosts
