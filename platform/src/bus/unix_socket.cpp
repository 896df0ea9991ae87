#include "platform/src/bus/unix_socket.h"

#include <cerrno>
#include <cstring>

#include <sys/socket.h>

namespace nv {

bool unixAddress(const std::filesystem::path& path, sockaddr_un& address) {
  address = {};
  address.sun_family = AF_UNIX;
  if (path.native().size() >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path, path.c_str(), path.native().size());
  return true;
}

int unixSocket() { return socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

std::string because(const std::string& what, const std::filesystem::path& path) {
  return what + " " + path.string() + ": " + std::strerror(errno);
}

}  // namespace nv
