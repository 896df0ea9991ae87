#include "platform/src/store_file/foreign_file.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "platform/src/store_file/sqlite_db.h"

namespace nv {

namespace {

bool isPrintable(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return (byte >= 0x20 && byte != 0x7f) || (byte >= '\t' && byte <= '\r');
}

bool isText(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::istreambuf_iterator<char> begin(in), end;
  return begin != end && std::all_of(begin, end, isPrintable);
}

// Name and SQL each tell a table of ours, should one of them be damaged.
bool hasOnlyOtherTables(SqliteDb& db) {
  Statement all(db, "SELECT name, sql FROM sqlite_master");
  bool any = false;
  int result;
  for (; (result = all.step()) == SQLITE_ROW; any = true)
    for (const int column : {0, 1})
      if (all.text(column).find("store:") != std::string_view::npos) return false;
  return any && result == SQLITE_DONE;
}

bool isWhole(SqliteDb& db) {
  Statement check(db, "PRAGMA quick_check(1)");
  return check.step() == SQLITE_ROW && check.text(0) == "ok";
}

// The name for SQLite to read the file without a lock, and to make none beside it.
std::string immutable(const std::filesystem::path& file) {
  constexpr std::string_view hex = "0123456789abcdef";
  std::string name = "file:";
  for (const char c : file.string()) {
    const auto byte = static_cast<unsigned char>(c);
    name += {'%', hex[byte >> 4], hex[byte & 15]};
  }
  return name + "?immutable=1";
}

bool isOtherDatabase(const std::filesystem::path& file) {
  SqliteDb db(immutable(file), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
  return db.status() == SQLITE_OK && db.run("PRAGMA trusted_schema = OFF") == SQLITE_OK &&
         hasOnlyOtherTables(db) && isWhole(db);
}

}  // namespace

bool isSomethingElse(const std::filesystem::path& file) {
  return isText(file) || isOtherDatabase(file);
}

}  // namespace nv
