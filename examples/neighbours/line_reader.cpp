#include "examples/neighbours/line_reader.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace neighbours {

// Not blocking, should the file be something that waits for a writer.
LineReader::LineReader(const std::filesystem::path& file)
    : fd_(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}

LineReader::~LineReader() {
  if (fd_ >= 0) ::close(fd_);
}

bool LineReader::readAhead() {
  ahead_.erase(0, at_);
  at_ = 0;
  const auto before = ahead_.size();
  ahead_.resize(before + kLongestLine);
  ssize_t taken = fd_ < 0 ? 0 : ::read(fd_, ahead_.data() + before, kLongestLine);
  while (taken < 0 && errno == EINTR) taken = ::read(fd_, ahead_.data() + before, kLongestLine);
  ahead_.resize(before + static_cast<std::size_t>(std::max<ssize_t>(taken, 0)));
  return taken > 0;
}

std::optional<std::string> LineReader::next() {
  auto end = ahead_.find('\n', at_);
  while (end == std::string::npos && ahead_.size() - at_ < kLongestLine && readAhead())
    end = ahead_.find('\n', at_);
  if (at_ == ahead_.size()) return {};
  const auto length = std::min({end, ahead_.size(), at_ + kLongestLine}) - at_;
  auto line = ahead_.substr(at_, length);
  at_ += length;
  if (at_ < ahead_.size() && ahead_[at_] == '\n') ++at_;
  return line;
}

}  // namespace neighbours
