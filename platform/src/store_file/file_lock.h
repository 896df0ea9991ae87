/// Keeps a second process away from the same files.
#pragma once

#include <filesystem>

namespace nv {

/// An exclusive lock that the kernel gives back when the process ends, however it ends.
class FileLock {
 public:
  FileLock() = default;
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  /// Locks `file`, making it when it is missing; 0 when this object holds the lock, else an errno:
  /// EWOULDBLOCK when somebody else holds it.
  int lock(const std::filesystem::path& file);

 private:
  int fd_ = -1;
};

}  // namespace nv
