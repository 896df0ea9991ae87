#include "platform/src/store_file/record_tables.h"

#include <utility>

#include "platform/src/store_file/record_format.h"

namespace nv {

namespace {

constexpr std::string_view kPrefix = "store:";
constexpr std::string_view kHex = "0123456789abcdef";

bool isPlain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
}

// SQLite takes no zero byte in a name and holds upper and lower case for the same.
std::string tableName(std::string_view store) {
  std::string name(kPrefix);
  for (const char c : store) {
    const auto byte = static_cast<unsigned char>(c);
    if (isPlain(c))
      name += c;
    else
      name += {'%', kHex[byte >> 4], kHex[byte & 15]};
  }
  return name;
}

std::optional<std::string> storeName(std::string_view table) {
  if (!table.starts_with(kPrefix)) return std::nullopt;
  std::string store;
  for (std::size_t i = kPrefix.size(); i < table.size(); ++i) {
    if (table[i] != '%') {
      store += table[i];
      continue;
    }
    if (table.size() - i < 3) return std::nullopt;
    const std::size_t high = kHex.find(table[++i]), low = kHex.find(table[++i]);
    if (high == kHex.npos || low == kHex.npos) return std::nullopt;
    store += static_cast<char>(high << 4 | low);
  }
  return store;
}

std::string sqlName(std::string_view store) { return '"' + tableName(store) + '"'; }

std::string creation(std::string_view store) {
  return "CREATE TABLE " + sqlName(store) + "(id INTEGER PRIMARY KEY, record BLOB NOT NULL)";
}

// The store whose table a row of the schema describes; none when it is anything else.
std::optional<std::string> storeOf(std::string_view name, std::string_view sql) {
  std::optional<std::string> store = storeName(name);
  if (store && (sqlName(*store) != '"' + std::string(name) + '"' || sql != creation(*store)))
    store.reset();
  return store;
}

}  // namespace

int RecordTables::check() {
  int result = loadTables();
  for (auto at = tables_.begin(); result == SQLITE_OK && at != tables_.end(); ++at)
    result = checkTable(at->first, at->second);
  return result == SQLITE_OK ? checkStructure() : result;
}

int RecordTables::loadTables() {
  tables_.clear();
  Statement all(*db_, "SELECT name, sql FROM sqlite_master");
  int result;
  while ((result = all.step()) == SQLITE_ROW) {
    const std::optional<std::string> store = storeOf(all.text(0), all.text(1));
    if (!store) return SQLITE_CORRUPT;
    tables_[*store].name = sqlName(*store);
  }
  return result == SQLITE_DONE ? SQLITE_OK : result;
}

// A child pointer that went astray shows the records of another page once more, all of them
// undamaged: only the order of the ids tells.
int RecordTables::checkTable(const std::string& store, Table& table) {
  Ids ids;
  Statement all(*db_, "SELECT id, record FROM " + table.name + " ORDER BY id");
  int result;
  while ((result = all.step()) == SQLITE_ROW) {
    const std::int64_t id = all.integer(0);
    const auto found = decodeRecord(static_cast<std::uint32_t>(id), all.blob(1));
    if (!found || found->store != store) return SQLITE_CORRUPT;
    if (id == kMarkerId && ids.empty()) continue;
    if (id < 0 || id > 0xffffffff || (!ids.empty() && id <= ids.back())) return SQLITE_CORRUPT;
    ids.push_back(static_cast<std::uint32_t>(id));
  }
  table.ids = std::move(ids);
  return result == SQLITE_DONE ? SQLITE_OK : result;
}

// Finds what reading cannot miss: a page with fewer cells than it had, a page that nothing leads
// to.
int RecordTables::checkStructure() {
  Statement check(*db_, "PRAGMA quick_check(1)");
  const int result = check.step();
  if (result != SQLITE_ROW) return result == SQLITE_DONE ? SQLITE_CORRUPT : result;
  return check.text(0) == "ok" ? SQLITE_OK : SQLITE_CORRUPT;
}

int RecordTables::ids(std::string_view store, Ids& ids) {
  ids.clear();
  const auto at = tables_.find(store);
  if (at == tables_.end()) return SQLITE_OK;
  if (at->second.ids) {
    ids = *std::exchange(at->second.ids, std::nullopt);
    return SQLITE_OK;
  }
  Statement all(*db_, "SELECT id FROM " + at->second.name + " WHERE id >= 0 ORDER BY id");
  int result;
  while ((result = all.step()) == SQLITE_ROW)
    ids.push_back(static_cast<std::uint32_t>(all.integer(0)));
  return result == SQLITE_DONE ? SQLITE_OK : result;
}

int RecordTables::read(std::string_view store, std::uint32_t id, message& record) {
  const auto at = tables_.find(store);
  if (at == tables_.end()) return SQLITE_CORRUPT;
  Table& table = at->second;
  Statement& get = prepared(table.get, "SELECT record FROM " + table.name + " WHERE id = ?");
  int result = get.bind(1, id).step();
  if (result == SQLITE_ROW) {
    auto found = decodeRecord(id, get.blob(0));
    result = found && found->store == store ? SQLITE_OK : SQLITE_CORRUPT;
    if (result == SQLITE_OK) record = std::move(found->record);
  }
  get.reset();
  return result == SQLITE_DONE ? SQLITE_CORRUPT : result;  // the tree has lost it
}

void RecordTables::begin() { failure_ = prepared(begin_, "BEGIN IMMEDIATE").run(); }

void RecordTables::make(std::string_view name, std::string_view sql) {
  if (failure_ != SQLITE_OK) return;
  if (const auto store = storeOf(name, sql)) made(*store);
}

void RecordTables::put(std::string_view store, std::uint32_t id, const message& record) {
  if (failure_ != SQLITE_OK) return;
  write(store, made(store), id, record);
}

void RecordTables::remove(std::string_view store, std::uint32_t id) {
  if (failure_ != SQLITE_OK) return;
  Table& table = made(store);
  note(prepared(table.remove, "DELETE FROM " + table.name + " WHERE id = ?").bind(1, id).run());
}

std::string RecordTables::end() {
  if (failure_ == SQLITE_OK) note(prepared(commit_, "COMMIT").run());
  if (failure_ == SQLITE_OK) return {};
  if (!sqlite3_get_autocommit(db_->handle())) db_->run("ROLLBACK");
  loadTables();
  return SqliteDb::error(failure_);
}

// The commit at the end makes the log begin anew. Otherwise its pages, which are in the file by
// now, would stay valid until the next change, and should its end be cut off, what is left would
// take the file back to a mixture of then and now.
void RecordTables::foldLog() {
  if (db_->logPages() < kLogPages) return;
  if (sqlite3_wal_checkpoint_v2(db_->handle(), nullptr, SQLITE_CHECKPOINT_RESTART, nullptr,
                                nullptr) != SQLITE_OK)
    return;
  Statement version(*db_, "PRAGMA user_version");
  const std::int64_t folds = version.step() == SQLITE_ROW ? version.integer(0) : 0;
  version.reset();
  db_->run(("PRAGMA user_version = " + std::to_string((folds + 1) & 0x7fffffff)).c_str());
}

RecordTables::Table& RecordTables::made(std::string_view store) {
  const auto at = tables_.find(store);
  if (at != tables_.end()) return at->second;
  note(db_->run(creation(store).c_str()));
  Table& table = tables_[std::string(store)];
  table.name = sqlName(store);
  write(store, table, kMarkerId, message());
  return table;
}

void RecordTables::write(std::string_view store, Table& table, std::int64_t id,
                         const message& record) {
  Statement& put = prepared(table.put, "INSERT OR REPLACE INTO " + table.name + " VALUES(?, ?)");
  const auto bytes = encodeRecord(store, static_cast<std::uint32_t>(id), record);
  note(put.bind(1, id).bind(2, bytes).run());
}

Statement& RecordTables::prepared(std::unique_ptr<Statement>& statement, const std::string& sql) {
  if (!statement) statement = std::make_unique<Statement>(*db_, sql);
  return *statement;
}

void RecordTables::note(int result) {
  if (failure_ == SQLITE_OK) failure_ = result;
}

}  // namespace nv
