/// Giving other programs a file that is never half written.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace examples {

/// Puts `text` in the place of `file`: who opens it reads the old text or the new one, never a
/// part, also after a power failure. Returns when the new one is on disk; empty, or a line that
/// says why it is not: then the old one is still there, or the new one, which a power failure may
/// still take back.
///
/// `check` is asked before, with the path of a file that holds `text`; what it returns is why not.
std::string replaceFile(
    const std::filesystem::path& file, const std::string& text,
    const std::function<std::string(const std::filesystem::path& fresh)>& check = {});

}  // namespace examples
