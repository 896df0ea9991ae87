/// What the salvage of a damaged store file knows of SQLite's file format.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>

#include "platform/bytes.h"

namespace nv {

/// The page size of every store file. Small, since a commit writes at least one page.
inline constexpr std::uint32_t kPageSize = 1024;
using Page = std::array<unsigned char, kPageSize>;

inline std::uint32_t bigEndian32(const unsigned char* from) {
  return std::uint32_t{from[0]} << 24 | std::uint32_t{from[1]} << 16 | std::uint32_t{from[2]} << 8 |
         from[3];
}
inline std::uint32_t bigEndian16(const unsigned char* from) {
  return std::uint32_t{from[0]} << 8 | from[1];
}

/// Reads pieces of a file, which may be missing: then it is empty.
class RawFile {
 public:
  explicit RawFile(const std::filesystem::path& file) : in_(file, std::ios::binary) {
    std::error_code failed;
    size_ = std::filesystem::file_size(file, failed);
    if (failed) size_ = 0;
  }
  std::uint64_t size() const { return size_; }
  /// Whether all `length` bytes at `offset` could be read into `to`.
  bool read(std::uint64_t offset, unsigned char* to, std::size_t length) {
    in_.clear();
    in_.seekg(static_cast<std::streamoff>(offset));
    in_.read(reinterpret_cast<char*>(to), static_cast<std::streamsize>(length));
    return in_.good();
  }

 private:
  std::ifstream in_;
  std::uint64_t size_;
};

}  // namespace nv
