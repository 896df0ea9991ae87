#include "examples/support/replace_file.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace examples {

namespace fs = std::filesystem;

namespace {

class Descriptor {
 public:
  Descriptor(const fs::path& path, int flags)
      : fd_(::open(path.c_str(), flags | O_CLOEXEC, 0644)) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool isOpen() const { return fd_ >= 0; }
  bool sync() const { return ::fsync(fd_) == 0; }
  bool write(std::string_view text) const {
    while (!text.empty()) {
      const auto written = ::write(fd_, text.data(), text.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) return false;
      text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
  }

 private:
  int fd_;
};

bool writeDurably(const fs::path& file, const std::string& text) {
  const Descriptor out(file, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW);
  return out.isOpen() && out.write(text) && out.sync();
}

/// Makes it last that a file of this directory has another name.
bool syncDirectory(const fs::path& directory) {
  const Descriptor opened(directory.empty() ? "." : directory, O_RDONLY | O_DIRECTORY);
  return opened.isOpen() && opened.sync();
}

}  // namespace

std::string replaceFile(const fs::path& file, const std::string& text,
                        const std::function<std::string(const fs::path& fresh)>& check) {
  auto fresh = file;
  fresh += ".new";
  std::string why;
  if (!writeDurably(fresh, text)) why = std::strerror(errno);
  if (why.empty() && check) why = check(fresh);
  if (why.empty() &&
      (::rename(fresh.c_str(), file.c_str()) != 0 || !syncDirectory(file.parent_path())))
    why = std::strerror(errno);
  if (why.empty()) return "";
  ::unlink(fresh.c_str());
  return "cannot write " + file.string() + ": " + why;
}

}  // namespace examples
