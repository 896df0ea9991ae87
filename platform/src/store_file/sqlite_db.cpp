#include "platform/src/store_file/sqlite_db.h"

#include <cerrno>

#include "platform/src/store_file/disk.h"

namespace nv {

namespace {

int noteLogPages(void* pages, sqlite3*, const char*, int now) {
  *static_cast<int*>(pages) = now;
  return SQLITE_OK;
}

}  // namespace

SqliteDb::SqliteDb(const std::string& file, int flags) {
  sqlite3* db = nullptr;
  status_ = sqlite3_open_v2(file.c_str(), &db, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  db_.reset(db);
  if (!db) status_ = SQLITE_NOMEM;
  if (status_ != SQLITE_OK) return;
  sqlite3_extended_result_codes(db, 1);
  sqlite3_wal_hook(db, noteLogPages, &logPages_);
}

int SqliteDb::run(const char* sql) {
  return sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr);
}

std::string SqliteDb::error(int code) {
  return (code & 0xff) == SQLITE_FULL ? systemError(ENOSPC) : sqlite3_errstr(code);
}

void SqliteDb::foldLogOnClose(bool fold) {
  sqlite3_db_config(db_.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, fold ? 0 : 1, nullptr);
}

Statement::Statement(SqliteDb& db, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  status_ = sqlite3_prepare_v3(db.handle(), sql.data(), static_cast<int>(sql.size()),
                               SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  statement_.reset(statement);
}

Statement& Statement::bind(int at, std::int64_t value) {
  sqlite3_bind_int64(statement_.get(), at, value);
  return *this;
}

Statement& Statement::bind(int at, byte_view bytes) {
  sqlite3_bind_blob64(statement_.get(), at, bytes.data(), bytes.size(), SQLITE_STATIC);
  return *this;
}

int Statement::step() { return status_ == SQLITE_OK ? sqlite3_step(statement_.get()) : status_; }

int Statement::run() {
  int result = step();
  while (result == SQLITE_ROW) result = step();
  reset();
  return result == SQLITE_DONE ? SQLITE_OK : result;
}

void Statement::reset() { sqlite3_reset(statement_.get()); }

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

byte_view Statement::blob(int column) const {
  const void* bytes = sqlite3_column_blob(statement_.get(), column);
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return {static_cast<const unsigned char*>(bytes), bytes ? static_cast<std::size_t>(size) : 0};
}

std::string_view Statement::text(int column) const {
  const unsigned char* bytes = sqlite3_column_text(statement_.get(), column);
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return {reinterpret_cast<const char*>(bytes), bytes ? static_cast<std::size_t>(size) : 0};
}

}  // namespace nv
