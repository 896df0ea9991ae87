/// SQLite's C handles with owners. Nothing here throws: every call gives SQLite's result code.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <sqlite3.h>

#include "platform/bytes.h"

namespace nv {

/// One connection. For one thread at a time; the owner sees to that.
class SqliteDb {
 public:
  /// Opens `file` with SQLite's own open flags; `status` tells how that went.
  SqliteDb(const std::string& file, int flags);
  SqliteDb(const SqliteDb&) = delete;
  SqliteDb& operator=(const SqliteDb&) = delete;

  int status() const { return status_; }
  /// Runs SQL that gives no rows worth reading.
  int run(const char* sql);
  /// What a result code means.
  static std::string error(int code);
  /// How many pages the write-ahead log held after the last commit. It is not folded into the file
  /// by itself.
  int logPages() const { return logPages_; }
  /// Whether closing copies the log into the file (so it does at first), or leaves both as they
  /// are.
  void foldLogOnClose(bool fold);

  sqlite3* handle() { return db_.get(); }

 private:
  struct Close {
    void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
  };
  int logPages_ = 0;
  std::unique_ptr<sqlite3, Close> db_;
  int status_;
};

/// A prepared statement; must go before its connection does.
class Statement {
 public:
  /// A statement that cannot be prepared gives the reason at each `step`.
  Statement(SqliteDb& db, const std::string& sql);

  /// Sets parameter `at`, from 1. The bytes must stay until the statement has run.
  Statement& bind(int at, std::int64_t value);
  Statement& bind(int at, byte_view bytes);

  /// SQLITE_ROW, SQLITE_DONE or an error.
  int step();
  /// Runs to the end and makes ready for the next time; SQLITE_OK or an error.
  int run();
  void reset();

  /// Columns of the row, from 0; views are valid until the next step.
  std::int64_t integer(int column) const;
  byte_view blob(int column) const;
  std::string_view text(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  int status_;
};

}  // namespace nv
