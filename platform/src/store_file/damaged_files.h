/// Damaged store files that are kept, for whoever wants to know what happened to them.
#pragma once

#include <filesystem>
#include <set>
#include <string>

namespace nv {

/// The damaged files of one store file: `file`.damaged-N, each with its log beside it, if it had
/// one, as `file`.damaged-N-wal. The higher N the newer.
class DamagedFiles {
 public:
  static constexpr std::size_t kMostKept = 4;

  explicit DamagedFiles(std::filesystem::path file) : file_(std::move(file)) {}

  struct Kept {
    int failed;                  // 0 or an errno
    std::filesystem::path name;  // which the file has now
  };
  /// Gives `file` and its log the next number; then deletes the oldest beyond kMostKept. Requires:
  /// one of the two is there. Where a process was killed on the way, the next one goes on.
  Kept keep();

 private:
  std::set<unsigned> numbers() const;
  unsigned nextNumber() const;
  std::filesystem::path name(unsigned number) const;
  void deleteOldest() const;

  std::filesystem::path file_;
};

}  // namespace nv
