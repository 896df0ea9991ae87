/// Gets the records out of a damaged store file.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/src/store_file/page_images.h"
#include "platform/src/store_file/record_format.h"

namespace nv {

/// Looks at each page for itself, since the tree above may be what is damaged. Every page that
/// holds records says so, and every record vouches for itself. Pages out of use hold none: freed
/// ones are overwritten with zeros (secure_delete), so no record comes back that was removed.
class Salvage {
 public:
  explicit Salvage(PageImages& pages) : pages_(pages) {}

  /// Calls `take` with each undamaged record, a later value of a record after an earlier one.
  using Take = std::function<void(std::uint32_t id, const StoredRecord& record)>;
  void run(const Take& take);

  /// The rows of the schema that describe tables, as far as they could be read.
  struct TableRow {
    std::string name, sql;
  };
  const std::vector<TableRow>& tables() const { return tables_; }
  /// The stores whose marker was found.
  const std::set<std::string>& stores() const { return stores_; }

  /// What could not be read, a text each.
  const std::vector<std::string>& losses() const { return losses_; }

 private:
  struct Cell {
    std::uint64_t id;
    std::uint64_t length;    // of the payload
    std::size_t at, here;    // where the payload begins and how much of it is in this page
    std::uint32_t overflow;  // the page with the rest, or 0
    std::size_t size;
  };

  void scanPage(std::uint32_t number);
  void scanLeaf(std::uint32_t number, const Page& page);
  void takeCell(std::uint32_t number, const Page& page, const std::optional<Cell>& cell);
  static std::optional<Cell> readCell(const Page& page, std::size_t offset);
  std::vector<unsigned char> payload(const Page& page, const Cell& cell);
  void markFreePages();
  void reportPages();
  void lose(std::uint32_t page, const std::string& what);

  PageImages& pages_;
  Take take_;
  std::vector<bool>
      explained_;  // by page number: it is lost or holds no record, or they were taken
  std::vector<TableRow> tables_;
  std::set<std::string> stores_;
  std::vector<std::string> losses_;
};

}  // namespace nv
