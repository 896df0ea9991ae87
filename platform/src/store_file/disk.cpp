#include "platform/src/store_file/disk.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nv {

namespace {

int sync(const std::filesystem::path& what, int flags) {
  const int fd = ::open(what.c_str(), flags | O_CLOEXEC);
  if (fd < 0) return errno;
  const int failed = ::fsync(fd) == 0 ? 0 : errno;
  ::close(fd);
  return failed;
}

int writeAll(int fd, const std::vector<char>& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0) return errno;
    done += static_cast<std::size_t>(n);
  }
  return ::fsync(fd) == 0 ? 0 : errno;
}

}  // namespace

std::string systemError(int code) {
  std::string text = std::generic_category().message(code);
  if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

int syncFile(const std::filesystem::path& file) { return sync(file, O_RDONLY); }

int syncDirectory(const std::filesystem::path& directory) {
  return sync(directory.empty() ? "." : directory, O_RDONLY | O_DIRECTORY);
}

int moveFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (std::rename(from.c_str(), to.c_str()) != 0) return errno;
  return syncDirectory(to.parent_path());
}

int makePrivateFile(const std::filesystem::path& file) {
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  const int failed = ::fchmod(fd, 0600) == 0 ? 0 : errno;
  ::close(fd);
  return failed;
}

int probeSpace(const std::filesystem::path& scratch) {
  const int fd = ::open(scratch.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  const int failed = writeAll(fd, std::vector<char>(kSpaceProbe, 'x'));
  ::close(fd);
  ::unlink(scratch.c_str());
  return failed;
}

}  // namespace nv
