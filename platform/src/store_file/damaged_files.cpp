#include "platform/src/store_file/damaged_files.h"

#include <charconv>
#include <limits>
#include <string_view>
#include <system_error>

#include <unistd.h>

#include "platform/src/store_file/disk.h"

namespace nv {

namespace fs = std::filesystem;

namespace {

bool isThere(const fs::path& file) { return ::access(file.c_str(), F_OK) == 0; }

fs::path logOf(fs::path file) { return file += "-wal"; }

/// The number in "N" or "N-wal"; 0 when it is anything else.
unsigned numberIn(std::string_view ending) {
  unsigned number = 0;
  const char* const end = ending.data() + ending.size();
  const auto [rest, failed] = std::from_chars(ending.data(), end, number);
  const bool isName = rest == end || std::string_view(rest, end) == "-wal";
  const bool hasNext = number != std::numeric_limits<unsigned>::max();
  return failed == std::errc() && isName && hasNext ? number : 0;
}

}  // namespace

// The log first: it must never stand beside the file that comes next.
DamagedFiles::Kept DamagedFiles::keep() {
  Kept kept{0, name(nextNumber())};
  if (isThere(logOf(file_))) kept.failed = moveFile(logOf(file_), logOf(kept.name));
  if (kept.failed == 0 && isThere(file_)) kept.failed = moveFile(file_, kept.name);
  if (kept.failed == 0) deleteOldest();
  return kept;
}

std::set<unsigned> DamagedFiles::numbers() const {
  const std::string start = file_.filename().string() + ".damaged-";
  const fs::path directory = file_.has_parent_path() ? file_.parent_path() : fs::path(".");
  std::set<unsigned> found;
  std::error_code failed;
  for (fs::directory_iterator at(directory, failed), end; !failed && at != end;
       at.increment(failed)) {
    const std::string other = at->path().filename().string();
    if (!other.starts_with(start)) continue;
    if (const unsigned number = numberIn(std::string_view(other).substr(start.size())))
      found.insert(number);
  }
  return found;
}

// A number that has a log alone belongs to the file that is still to be moved.
unsigned DamagedFiles::nextNumber() const {
  const std::set<unsigned> taken = numbers();
  const unsigned last = taken.empty() ? 0 : *taken.rbegin();
  const bool isBegun = last != 0 && !isThere(name(last)) && !isThere(logOf(file_));
  return isBegun ? last : last + 1;
}

fs::path DamagedFiles::name(unsigned number) const {
  fs::path name = file_;
  return name += ".damaged-" + std::to_string(number);
}

void DamagedFiles::deleteOldest() const {
  std::set<unsigned> kept = numbers();
  for (; kept.size() > kMostKept; kept.erase(kept.begin())) {
    ::unlink(name(*kept.begin()).c_str());
    ::unlink(logOf(name(*kept.begin())).c_str());
  }
}

}  // namespace nv
