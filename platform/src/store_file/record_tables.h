/// The tables of records in one database.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/message.h"
#include "platform/src/store_file/sqlite_db.h"

namespace nv {

/// A table `"store:<name>"(id INTEGER PRIMARY KEY, record BLOB NOT NULL)` for each store, made with
/// its first record. In the table's name all but a-z, 0-9, '_', '-' and '.' stands as %xx.
///
/// Its first row, under kMarkerId, is no record of the store: an empty one, which tells a salvage
/// that the store was there though it held nothing. Files made by earlier versions have none.
class RecordTables {
 public:
  using Ids = std::vector<std::uint32_t>;

  explicit RecordTables(std::unique_ptr<SqliteDb> db) : db_(std::move(db)) {}

  /// Reads every record and the structure around them. SQLITE_OK when all is as it was written,
  /// SQLITE_CORRUPT when anything is not, another code when it could not be found out.
  int check();

  /// Whether the store has a table.
  bool has(std::string_view store) const { return tables_.contains(store); }
  /// Replaces `ids` by those of the store's records, ascending; SQLITE_OK, or why some are missing.
  int ids(std::string_view store, Ids& ids);
  /// Replaces `record` by that under `id`, which is there; SQLITE_OK, or why it cannot be read as
  /// it was written.
  int read(std::string_view store, std::uint32_t id, message& record);

  // A transaction: `begin`, any number of `make`, `put` and `remove`, `end`.
  void begin();
  /// Makes the table of a store when there is none.
  void make(std::string_view store) {
    if (failure_ == SQLITE_OK) made(store);
  }
  /// Makes the table that a row of another schema describes, when it is that of a store.
  void make(std::string_view name, std::string_view sql);
  void put(std::string_view store, std::uint32_t id, const message& record);
  void remove(std::string_view store, std::uint32_t id);
  /// Commits; empty, or what went wrong on the way, and then nothing is changed.
  std::string end();
  /// Copies the log into the file once it has grown to kLogPages. What cannot be copied now (on a
  /// full disk) is copied another time.
  void foldLog();
  static constexpr int kLogPages = 256;

  SqliteDb& db() { return *db_; }

 private:
  struct Table {
    std::string name;  // quoted for SQL
    std::optional<Ids> ids;
    std::unique_ptr<Statement> get, put, remove;
  };
  using Tables = std::map<std::string, Table, std::less<>>;

  int loadTables();
  int checkTable(const std::string& store, Table& table);
  int checkStructure();
  Table& made(std::string_view store);
  void write(std::string_view store, Table& table, std::int64_t id, const message& record);
  Statement& prepared(std::unique_ptr<Statement>& statement, const std::string& sql);
  void note(int result);

  std::unique_ptr<SqliteDb> db_;  // first: the statements go before it
  std::unique_ptr<Statement> begin_, commit_;
  Tables tables_;
  int failure_ = SQLITE_OK;  // the first one in this transaction
};

}  // namespace nv
