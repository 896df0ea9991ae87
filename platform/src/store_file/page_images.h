/// The newest readable image of each page of a store file, from the file and its log.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

#include "platform/src/store_file/file_format.h"
#include "platform/src/store_file/log_images.h"

namespace nv {

class PageImages {
 public:
  /// Reads `file` and `file`-wal, either of which may be missing.
  explicit PageImages(const std::filesystem::path& file);

  /// The highest page number; pages are counted from 1.
  std::uint32_t count() const { return count_; }
  /// All page numbers, those with the oldest image first: of two records with one id the later is
  /// the valid one.
  std::vector<std::uint32_t> oldestFirst() const;
  /// None when the newest image is damaged or missing.
  std::optional<Page> read(std::uint32_t page);

 private:
  RawFile file_;
  RawFile log_;
  LogImages images_;
  std::uint32_t count_;
};

}  // namespace nv
