/// A text file, read a piece at a time.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace neighbours {

/// Reads ahead no more than a piece. Holds the file open while it lives.
class LineReader {
 public:
  /// A longer line comes in parts.
  static constexpr std::size_t kLongestLine = 4096;

  explicit LineReader(const std::filesystem::path& file);
  ~LineReader();
  LineReader(const LineReader&) = delete;

  /// The next line, without its end; none behind the last one, and when the file cannot be read.
  std::optional<std::string> next();

 private:
  /// Whether more has been read.
  bool readAhead();

  int fd_;
  std::string ahead_;
  std::size_t at_ = 0;  // of the next line in ahead_
};

}  // namespace neighbours
