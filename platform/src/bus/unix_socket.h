/// What a Unix socket needs in any place.
#pragma once

#include <filesystem>
#include <string>

#include <sys/un.h>

namespace nv {

/// False when the path is too long for one.
bool unixAddress(const std::filesystem::path& path, sockaddr_un& address);
/// A stream socket that does not block; -1 when there is none to be had.
int unixSocket();
/// "<what> <path>: " and what errno says.
std::string because(const std::string& what, const std::filesystem::path& path);

}  // namespace nv
