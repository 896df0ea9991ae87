/// A file descriptor and its owner.
#pragma once

#include <utility>

#include <unistd.h>

namespace scripts {

/// Closes it.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor& operator=(Descriptor&&) = delete;

  int get() const { return fd_; }
  bool isOpen() const { return fd_ >= 0; }

 private:
  int fd_;
};

}  // namespace scripts
