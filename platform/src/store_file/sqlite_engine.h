/// The store engine of a service: one SQLite file, one thread that commits.
#pragma once

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/src/store_file/opener.h"
#include "platform/store_engine.h"

namespace nv {

/// The loop's thread opens and reads tables; the writer's thread commits and looks for space. They
/// share the database under one mutex, which a commit holds as long as it lasts, and a few words
/// under another, which nobody holds for long.
class SqliteEngine : public StoreEngine {
 public:
  /// Opens the file; `error` tells whether that failed, and then nothing else may be called. While
  /// changes are refused, looks for space once in `probeInterval`. Where there is space but the
  /// file cannot be opened for writing all the same, each look is twice as long after the one
  /// before, up to a minute.
  explicit SqliteEngine(const std::filesystem::path& file,
                        std::chrono::milliseconds probeInterval = std::chrono::seconds(1));
  /// Finishes the batch under way and closes the file.
  ~SqliteEngine() override;

  const std::string& error() const { return error_; }

  Opened open(std::string_view name) override;
  Found read(unsigned table, std::uint32_t id) override;
  void submit(StoreBatch batch) override;
  std::optional<Outcome> outcome() override;
  Outcome wait() override;
  void onOutcome(std::function<void()> wake) override;
  std::string refusal() override;

 private:
  using Clock = std::chrono::steady_clock;

  // The writer's thread; these give up the lock while they work.
  void runWriter();
  bool awaitWork(std::unique_lock<std::mutex>& state);
  void handleBatch(std::unique_lock<std::mutex>& state);
  void handleProbe(std::unique_lock<std::mutex>& state);
  Outcome commit(const StoreBatch& batch);
  std::string writeBatch(const StoreBatch& batch);
  void foldLog();
  std::string lookForSpace();

  // Under dataMutex_.
  std::mutex dataMutex_;
  StoreFileOpener file_;
  std::unique_ptr<RecordTables> tables_;
  bool standIn_ = false;
  std::vector<std::string> names_;  // by table

  // Under stateMutex_.
  std::mutex stateMutex_;
  std::condition_variable changed_;
  std::optional<StoreBatch> batch_;
  std::optional<Outcome> outcome_;
  std::function<void()> wake_;
  std::string refusal_;
  bool stopping_ = false;

  std::chrono::milliseconds probeInterval_;  // the writer's alone
  std::string error_;
  std::thread writer_;  // last: it uses all of the above
};

}  // namespace nv
