/// Opens the store file of a service, whatever state it is in.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/src/store_file/file_lock.h"
#include "platform/src/store_file/record_tables.h"

namespace nv {

/// One store file and those that stand beside it:
///
///     name             the tables (SQLite, in WAL mode)
///     name-wal         the log of changes that are not in the file yet
///     name.lock        locked as long as a process has the file open
///     name.damaged-1   kept aside, with name.damaged-1-wal; -2, -3, ... (see DamagedFiles)
///     name.tmp         a new file that is being written
///     name.fresh       a new file, complete, that takes the place of `name` before anything else
///     name.probe       written and deleted again to see whether there is space
///
/// Only the owner may read and write them. Reports what is lost, a line each, on the standard
/// output; while only a stand-in can be opened, what was reported is not repeated.
class StoreFileOpener {
 public:
  explicit StoreFileOpener(std::filesystem::path file) : file_(std::move(file)) {}

  struct Opened {
    std::unique_ptr<RecordTables> tables;  // null: see error
    std::string error;
    std::string refusal;   // why no change can be taken; empty when they can
    bool standIn = false;  // the tables are a copy in memory: to take changes, open again
  };
  /// Opens the file, makes it when it is missing, repairs it when it is damaged. Fails only when
  /// another process has the file open (or that cannot be found out), its directory is missing, it
  /// may not be read or is plainly no store file; where nothing can be written, what can be read is
  /// served from memory.
  Opened open();
  /// Why nothing can be written, empty when it can be.
  std::string probe() const;

 private:
  Opened openExisting();
  Opened openSound();
  Opened repair();
  Opened startEmpty();
  Opened standIn(const std::string& reason);
  Opened failed(const std::string& reason) const;

  using Fill = std::function<void(RecordTables&)>;
  std::string replace(const Fill& fill);
  std::string writeFresh(const Fill& fill);
  std::string finishReplacing();
  std::string setAside();
  Fill salvaged(std::vector<std::string>& losses, unsigned& kept);
  void report(const std::string& text);
  std::filesystem::path beside(const std::string& ending) const;

  std::filesystem::path file_;
  FileLock lock_;
  bool repaired_ = false;           // by this `open`
  std::set<std::string> reported_;  // since the file itself was open
};

}  // namespace nv
