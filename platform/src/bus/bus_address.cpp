#include "platform/src/bus/bus_address.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/src/bus/unix_socket.h"

namespace nv {

namespace fs = std::filesystem;

BusAddress::~BusAddress() {
  std::error_code ignored;
  if (!ownLink_.empty() && fs::read_symlink(ownLink_, ignored) == ownSocket_.filename())
    fs::remove(ownLink_, ignored);
  if (!ownSocket_.empty()) fs::remove(ownSocket_, ignored);
  for (const int lock : locks_) ::close(lock);
}

std::string BusAddress::take(std::uint32_t address, const std::string& name) {
  std::error_code failed;
  fs::create_directories(directory_, failed);
  if (failed) return "cannot make " + directory_.string() + ": " + failed.message();
  const auto number = std::to_string(address);
  if (auto error = lock(number + ".lock", "address " + number); !error.empty()) return error;
  if (!name.empty())
    if (auto error = lock(name + ".lock", "the name " + name); !error.empty()) return error;
  name_ = name;
  ownSocket_ = directory_ / (number + ".sock");
  return bindSocket();
}

std::string BusAddress::lock(const std::string& file, const std::string& what) {
  const auto path = directory_ / file;
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return because("cannot open", path);
  locks_.push_back(fd);
  if (flock(fd, LOCK_EX | LOCK_NB) == 0) return {};
  return what + " on " + directory_.string() + " is taken by another process";
}

std::string BusAddress::bindSocket() {
  sockaddr_un address;
  if (!unixAddress(ownSocket_, address))
    return "the path " + ownSocket_.string() + " is too long for a socket";
  std::error_code ignored;
  fs::remove(ownSocket_, ignored);
  const int fd = unixSocket();
  if (fd < 0) return because("cannot make", ownSocket_);
  // Nobody can connect before somebody listens, so the permissions are in time.
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      chmod(ownSocket_.c_str(), socketMode_) != 0) {
    auto error = because("cannot listen on", ownSocket_);
    ::close(fd);
    return error;
  }
  socket_ = fd;
  return {};
}

std::string BusAddress::publish() {
  if (name_.empty()) return {};
  const auto link = directory_ / name_;
  std::error_code failed;
  // A dead service may have left it. Anything else that stands there is not ours to remove.
  if (fs::is_symlink(link, failed)) fs::remove(link, failed);
  fs::create_symlink(ownSocket_.filename(), link, failed);
  if (failed) return "cannot make " + link.string() + ": " + failed.message();
  ownLink_ = link;
  return {};
}

}  // namespace nv
