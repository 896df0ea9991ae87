#include "platform/src/store_file/page_images.h"

#include <algorithm>
#include <utility>

namespace nv {

namespace {

std::filesystem::path logOf(std::filesystem::path file) { return file += "-wal"; }

}  // namespace

PageImages::PageImages(const std::filesystem::path& file)
    : file_(file), log_(logOf(file)), images_(logOf(file)) {
  const std::uint64_t inFile = (file_.size() + kPageSize - 1) / kPageSize;
  const std::uint64_t highest = images_.pages().empty() ? 0 : images_.pages().rbegin()->first;
  // What the log says about pages that cannot be there must not make us count to it.
  const std::uint64_t possible = inFile + images_.pages().size() + images_.lost().size();
  count_ = static_cast<std::uint32_t>(std::max(inFile, std::min(highest, possible)));
}

std::vector<std::uint32_t> PageImages::oldestFirst() const {
  std::vector<std::pair<std::uint32_t, std::uint32_t>> pages;  // frame, page
  for (std::uint32_t page = 1; page <= count_; ++page) {
    const auto at = images_.pages().find(page);
    pages.emplace_back(at == images_.pages().end() ? 0 : at->second.frame, page);
  }
  std::sort(pages.begin(), pages.end());
  std::vector<std::uint32_t> numbers;
  numbers.reserve(pages.size());
  for (const auto& [frame, page] : pages) numbers.push_back(page);
  return numbers;
}

std::optional<Page> PageImages::read(std::uint32_t page) {
  if (page == 0 || page > count_ || images_.lost().contains(page)) return std::nullopt;
  Page bytes;
  const auto at = images_.pages().find(page);
  const bool inLog = at != images_.pages().end();
  const std::uint64_t offset = inLog ? at->second.offset : std::uint64_t{page - 1} * kPageSize;
  if (!(inLog ? log_ : file_).read(offset, bytes.data(), bytes.size())) return std::nullopt;
  return bytes;
}

}  // namespace nv
