/// A directory of a test, gone with everything in it afterwards.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

class TempDirectory {
 public:
  TempDirectory() : TempDirectory(std::filesystem::temp_directory_path()) {}
  explicit TempDirectory(const std::filesystem::path& where) {
    std::string name = (where / "confkit-test-XXXXXX").string();
    if (!::mkdtemp(name.data())) std::abort();
    path_ = name;
  }
  ~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  /// Memory where there is such a file system, for tests that write much and need no disk.
  static std::filesystem::path inMemory() {
    const std::filesystem::path memory = "/dev/shm";
    return ::access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path();
  }

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};
