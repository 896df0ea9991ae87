#include "platform/src/store_file/file_lock.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace nv {

FileLock::~FileLock() {
  if (fd_ >= 0) ::close(fd_);
}

int FileLock::lock(const std::filesystem::path& file) {
  if (fd_ >= 0) return 0;
  const int fd = ::open(file.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    const int failed = errno;
    ::close(fd);
    return failed;
  }
  fd_ = fd;
  return 0;
}

}  // namespace nv
