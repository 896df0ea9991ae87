/// Keeps a mistyped file name from doing harm.
#pragma once

#include <filesystem>

namespace nv {

/// Whether `file` is plainly something else than a store file, damaged or not: an undamaged SQLite
/// database in which nothing was ever a store's, or text from beginning to end. False when in
/// doubt, since a damaged store file must still be repaired.
bool isSomethingElse(const std::filesystem::path& file);

}  // namespace nv
