#include "platform/src/store_file/opener.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <iostream>
#include <string_view>
#include <utility>

#include <unistd.h>

#include "platform/src/store_file/damaged_files.h"
#include "platform/src/store_file/disk.h"
#include "platform/src/store_file/file_format.h"
#include "platform/src/store_file/foreign_file.h"
#include "platform/src/store_file/log_images.h"
#include "platform/src/store_file/page_images.h"
#include "platform/src/store_file/salvage.h"

namespace nv {

namespace {

constexpr const char* kSettings =
    "PRAGMA trusted_schema = OFF;"
    "PRAGMA cell_size_check = ON;"
    "PRAGMA locking_mode = EXCLUSIVE;"
    "PRAGMA synchronous = FULL;"
    "PRAGMA secure_delete = ON;"
    "PRAGMA cache_size = -256;"
    "PRAGMA temp_store = MEMORY;"
    "PRAGMA journal_size_limit = 1048576;";

bool isThere(const std::filesystem::path& file) { return ::access(file.c_str(), F_OK) == 0; }

// What is not there may become one.
bool mayBeFile(const std::filesystem::path& file) {
  std::error_code unreadable;
  const auto status = std::filesystem::status(file, unreadable);
  return file.has_filename() && (std::filesystem::is_regular_file(status) ||
                                 status.type() == std::filesystem::file_type::not_found ||
                                 status.type() == std::filesystem::file_type::none);
}

// The text, the page size and the mode stand where SQLite itself would look before anything else.
bool headerIsOurs(const std::filesystem::path& file) {
  std::array<unsigned char, 100> header;
  if (!RawFile(file).read(0, header.data(), header.size())) return false;
  constexpr std::string_view text("SQLite format 3\0", 16);
  return std::equal(text.begin(), text.end(), header.begin()) &&
         bigEndian16(&header[16]) == kPageSize && header[18] == 2 && header[19] == 2;
}

// Where no lock file can be made, no other process can write either.
bool mayStillBeRead(int failed) { return failed == EROFS || failed == ENOSPC || failed == EDQUOT; }

bool meansDamage(int result) {
  const int kind = result & 0xff;
  return kind == SQLITE_CORRUPT || kind == SQLITE_NOTADB || kind == SQLITE_ERROR ||
         kind == SQLITE_FORMAT || kind == SQLITE_TOOBIG || result == SQLITE_IOERR_READ ||
         result == SQLITE_IOERR_SHORT_READ || result == SQLITE_IOERR_CORRUPTFS;
}

std::string textOf(int code) { return code == 0 ? std::string() : systemError(code); }

std::unique_ptr<RecordTables> tablesInMemory() {
  return std::make_unique<RecordTables>(
      std::make_unique<SqliteDb>(":memory:", SQLITE_OPEN_READWRITE));
}

}  // namespace

StoreFileOpener::Opened StoreFileOpener::open() {
  if (!mayBeFile(file_)) return failed("is no file");
  const int locked = lock_.lock(beside(".lock"));
  if (locked == EWOULDBLOCK) return failed("is in use by another process");
  if (locked == ENOENT || locked == ENOTDIR) return failed("its directory is missing");
  if (locked != 0 && !mayStillBeRead(locked))
    return failed("cannot be locked: " + systemError(locked));

  if (const std::string reason = finishReplacing(); !reason.empty()) return standIn(reason);
  repaired_ = false;
  Opened opened = isThere(file_) || isThere(beside("-wal")) ? openExisting() : startEmpty();
  if (opened.tables && !opened.standIn) {
    reported_.clear();
    opened.refusal = probe();
  }
  return opened;
}

std::string StoreFileOpener::probe() const { return textOf(probeSpace(beside(".probe"))); }

StoreFileOpener::Opened StoreFileOpener::openExisting() {
  if (isThere(file_) && ::access(file_.c_str(), R_OK) != 0) return failed(systemError(errno));
  if (!isThere(beside("-wal")) && isSomethingElse(file_)) return failed("is not a store file");
  if (isThere(file_) && ::access(file_.c_str(), W_OK) != 0) return standIn(systemError(errno));
  if (headerIsOurs(file_) && !LogImages(beside("-wal")).damaged()) return openSound();
  return repair();
}

// Leaves file and log as they are until all is found to be sound: what is damaged is evidence.
StoreFileOpener::Opened StoreFileOpener::openSound() {
  auto db = std::make_unique<SqliteDb>(file_.string(), SQLITE_OPEN_READWRITE);
  int result = db->status();
  if (result == SQLITE_OK) {
    db->foldLogOnClose(false);
    result = db->run(kSettings);
  }
  auto tables = std::make_unique<RecordTables>(std::move(db));
  if (result == SQLITE_OK) result = tables->check();
  if (result == SQLITE_OK) {
    tables->db().foldLogOnClose(true);
    return {std::move(tables), {}, {}};
  }
  const std::string reason = SqliteDb::error(result);
  tables.reset();
  if (meansDamage(result)) return repair();
  if ((result & 0xff) == SQLITE_BUSY) return failed("is in use by another process");
  return standIn(reason);
}

StoreFileOpener::Opened StoreFileOpener::repair() {
  if (std::exchange(repaired_, true)) return failed("what is written does not come back when read");
  std::vector<std::string> losses;
  unsigned kept = 0;
  const std::string reason = replace(salvaged(losses, kept));
  if (!reason.empty()) {
    report("is damaged and cannot be repaired: " + reason);
    return standIn(reason);
  }
  for (const std::string& loss : losses) report(loss);
  report("was damaged; " + std::to_string(kept) + " records were found undamaged");
  return openSound();
}

StoreFileOpener::Opened StoreFileOpener::startEmpty() {
  const std::string reason = replace([](RecordTables&) {});
  return reason.empty() ? openSound() : standIn(reason);
}

StoreFileOpener::Opened StoreFileOpener::standIn(const std::string& reason) {
  const std::string missing = probe();
  Opened opened{tablesInMemory(), {}, missing.empty() ? reason : missing, true};
  std::vector<std::string> losses;
  unsigned kept = 0;
  opened.tables->begin();
  salvaged(losses, kept)(*opened.tables);
  opened.tables->end();
  for (const std::string& loss : losses) report(loss);
  return opened;
}

StoreFileOpener::Opened StoreFileOpener::failed(const std::string& reason) const {
  return {nullptr, "store: " + file_.string() + ": " + reason, {}};
}

StoreFileOpener::Fill StoreFileOpener::salvaged(std::vector<std::string>& losses, unsigned& kept) {
  return [this, &losses, &kept](RecordTables& tables) {
    PageImages pages(file_);
    Salvage salvage(pages);
    salvage.run([&](std::uint32_t id, const StoredRecord& found) {
      tables.put(found.store, id, found.record);
      ++kept;
    });
    // A store that was emptied is not there for the first time.
    for (const Salvage::TableRow& row : salvage.tables()) tables.make(row.name, row.sql);
    for (const std::string& store : salvage.stores()) tables.make(store);
    losses = salvage.losses();
  };
}

// Each step is durable before the next begins, and each can be taken again: a process that is
// killed in between finds `.fresh` and goes on.
std::string StoreFileOpener::replace(const Fill& fill) {
  std::string failed = writeFresh(fill);
  if (failed.empty()) failed = finishReplacing();
  return failed;
}

std::string StoreFileOpener::writeFresh(const Fill& fill) {
  const std::filesystem::path tmp = beside(".tmp");
  ::unlink(tmp.c_str());
  // Made here for its mode, which SQLite gives to the log too.
  if (const int code = makePrivateFile(tmp); code != 0) return systemError(code);
  std::string failed;
  {
    auto db = std::make_unique<SqliteDb>(tmp.string(), SQLITE_OPEN_READWRITE);
    if (db->status() != SQLITE_OK) return SqliteDb::error(db->status());
    db->run(("PRAGMA page_size = " + std::to_string(kPageSize)).c_str());
    db->run("PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; PRAGMA secure_delete = ON;");
    RecordTables tables(std::move(db));
    tables.begin();
    fill(tables);
    failed = tables.end();
    const int result = tables.db().run("PRAGMA journal_mode = WAL");
    if (failed.empty() && result != SQLITE_OK) failed = SqliteDb::error(result);
  }
  if (failed.empty()) failed = textOf(syncFile(tmp));
  if (failed.empty()) failed = textOf(moveFile(tmp, beside(".fresh")));
  if (!failed.empty()) ::unlink(tmp.c_str());
  return failed;
}

std::string StoreFileOpener::finishReplacing() {
  const std::filesystem::path fresh = beside(".fresh");
  if (!isThere(fresh)) return {};
  std::string failed = setAside();
  if (!failed.empty()) return failed;
  return textOf(moveFile(fresh, file_));
}

std::string StoreFileOpener::setAside() {
  if (!isThere(file_) && !isThere(beside("-wal"))) return {};
  const DamagedFiles::Kept kept = DamagedFiles(file_).keep();
  if (kept.failed != 0) return systemError(kept.failed);
  report("is kept as " + kept.name.string());
  return {};
}

void StoreFileOpener::report(const std::string& text) {
  if (!reported_.insert(text).second) return;
  std::cout << "store: " << file_.string() << ": " << text << std::endl;
}

std::filesystem::path StoreFileOpener::beside(const std::string& ending) const {
  std::filesystem::path name = file_;
  return name += ending;
}

}  // namespace nv
