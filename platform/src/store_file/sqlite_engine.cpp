#include "platform/src/store_file/sqlite_engine.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace nv {

SqliteEngine::SqliteEngine(const std::filesystem::path& file,
                           std::chrono::milliseconds probeInterval)
    : file_(file), probeInterval_(probeInterval) {
  StoreFileOpener::Opened opened = file_.open();
  error_ = opened.error;
  if (!error_.empty()) return;
  tables_ = std::move(opened.tables);
  standIn_ = opened.standIn;
  refusal_ = opened.refusal;
  writer_ = std::thread([this] { runWriter(); });
}

SqliteEngine::~SqliteEngine() {
  if (!writer_.joinable()) return;
  {
    std::lock_guard state(stateMutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  writer_.join();
}

StoreEngine::Opened SqliteEngine::open(std::string_view name) {
  std::lock_guard data(dataMutex_);
  auto at = std::find(names_.begin(), names_.end(), name);
  if (at == names_.end()) at = names_.emplace(names_.end(), name);
  const auto table = static_cast<unsigned>(at - names_.begin());
  Opened opened{table, !tables_->has(name), {}};
  if (const int failed = tables_->ids(name, opened.ids); failed != SQLITE_OK)
    opened.error =
        "records of \"" + names_[table] + "\" cannot be listed: " + SqliteDb::error(failed);
  return opened;
}

StoreEngine::Found SqliteEngine::read(unsigned table, std::uint32_t id) {
  std::lock_guard data(dataMutex_);
  Found found;
  if (const int failed = tables_->read(names_[table], id, found.record); failed != SQLITE_OK)
    found.error = "record " + std::to_string(id) + " of \"" + names_[table] +
                  "\" cannot be read: " + SqliteDb::error(failed);
  return found;
}

void SqliteEngine::submit(StoreBatch batch) {
  {
    std::lock_guard state(stateMutex_);
    assert(!batch_ && !outcome_);
    batch_ = std::move(batch);
  }
  changed_.notify_all();
}

std::optional<StoreEngine::Outcome> SqliteEngine::outcome() {
  std::lock_guard state(stateMutex_);
  return std::exchange(outcome_, std::nullopt);
}

StoreEngine::Outcome SqliteEngine::wait() {
  std::unique_lock state(stateMutex_);
  changed_.wait(state, [this] { return outcome_.has_value(); });
  return *std::exchange(outcome_, std::nullopt);
}

void SqliteEngine::onOutcome(std::function<void()> wake) {
  std::lock_guard state(stateMutex_);
  wake_ = std::move(wake);
}

std::string SqliteEngine::refusal() {
  std::lock_guard state(stateMutex_);
  return refusal_;
}

void SqliteEngine::runWriter() {
  std::unique_lock state(stateMutex_);
  for (;;) {
    if (!awaitWork(state))
      handleProbe(state);
    else if (batch_)
      handleBatch(state);
    else
      return;
  }
}

// False when it is time to look for space instead.
bool SqliteEngine::awaitWork(std::unique_lock<std::mutex>& state) {
  const auto work = [this] { return batch_ || stopping_; };
  if (!refusal_.empty()) return changed_.wait_for(state, probeInterval_, work);
  changed_.wait(state, work);
  return true;
}

void SqliteEngine::handleBatch(std::unique_lock<std::mutex>& state) {
  const StoreBatch batch = *std::exchange(batch_, std::nullopt);
  state.unlock();
  Outcome done = commit(batch);
  state.lock();
  outcome_ = std::move(done);
  changed_.notify_all();
  if (wake_) wake_();
  state.unlock();
  foldLog();
  state.lock();
}

void SqliteEngine::handleProbe(std::unique_lock<std::mutex>& state) {
  state.unlock();
  std::string found = lookForSpace();
  state.lock();
  if (std::exchange(refusal_, found) != found && wake_) wake_();
}

StoreEngine::Outcome SqliteEngine::commit(const StoreBatch& batch) {
  const auto start = Clock::now();
  Outcome done{writeBatch(batch), 0};
  const auto took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
  done.microseconds = static_cast<std::uint64_t>(took.count());
  return done;
}

std::string SqliteEngine::writeBatch(const StoreBatch& batch) {
  std::lock_guard data(dataMutex_);
  if (standIn_) return "the store file cannot be written";
  tables_->begin();
  for (const StoreChange& change : batch) {
    if (change.record)
      tables_->put(names_[change.table], change.id, *change.record);
    else
      tables_->remove(names_[change.table], change.id);
  }
  std::string error = tables_->end();
  if (error.empty()) return error;
  // The system's own words, when it still has them, say more than "disk I/O error".
  std::string missing = file_.probe();
  return missing.empty() ? error : missing;
}

// After the outcome was told, since nobody waits for this.
void SqliteEngine::foldLog() {
  std::lock_guard data(dataMutex_);
  tables_->foldLog();
}

// Nothing can have changed while the stand-in served, so the file, once it can be written, takes
// its place as it is.
std::string SqliteEngine::lookForSpace() {
  std::lock_guard data(dataMutex_);
  if (std::string missing = file_.probe(); !missing.empty() || !standIn_) return missing;
  StoreFileOpener::Opened opened = file_.open();
  if (!opened.tables || opened.standIn) {
    constexpr std::chrono::milliseconds longest = std::chrono::minutes(1);
    probeInterval_ = std::min(2 * probeInterval_, longest);
    return opened.tables ? opened.refusal : opened.error;
  }
  tables_ = std::move(opened.tables);
  standIn_ = false;
  return opened.refusal;
}

}  // namespace nv
