/// What the store needs of the file system beside its database.
#pragma once

#include <filesystem>
#include <string>

namespace nv {

/// The system's words for an errno, such as "no space left on device".
std::string systemError(int code);

/// Each of these gives 0 or an errno.
/// Makes the contents of a file durable.
int syncFile(const std::filesystem::path& file);
/// Makes the names of files in a directory durable.
int syncDirectory(const std::filesystem::path& directory);
/// Renames a file, replacing the one that had the new name; durable once this returns 0.
int moveFile(const std::filesystem::path& from, const std::filesystem::path& to);
/// Makes an empty file that its owner alone may read and write, whatever the umask; EEXIST when
/// there is one.
int makePrivateFile(const std::filesystem::path& file);
/// Whether the file system of `scratch` takes `kSpaceProbe` bytes more, by writing them there. The
/// file is gone afterwards.
int probeSpace(const std::filesystem::path& scratch);

/// What an ordinary batch of changes may need.
inline constexpr unsigned kSpaceProbe = 64 * 1024;

}  // namespace nv
