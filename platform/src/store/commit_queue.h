/// Gathers the changes of all stores into batches and tells how far the disk has come.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/store_engine.h"

namespace nv {

/// Between the stores of a process and their engine. At most one batch is being written; changes
/// made meanwhile gather in the next one. Changes are counted from 1 in the order in which they are
/// made, so that the loop can say of a reply "not before change number N is on disk".
class CommitQueue {
 public:
  explicit CommitQueue(std::unique_ptr<StoreEngine> engine);

  /// `told` is called, in the middle of `open` or `get`, when the engine cannot read what is on
  /// disk. It should end the process, since whoever asked would take the record for absent. From
  /// then on error() says why.
  void onUnreadable(std::function<void(const std::string& why)> told) {
    unreadable_ = std::move(told);
  }

  // The stores' side.
  /// As the engine opens it, and with the changes made so far, written or not.
  StoreEngine::Opened open(std::string_view name);
  void set(unsigned table, std::uint32_t id, const message& record);
  void remove(unsigned table, std::uint32_t id);
  /// The record as the changes made so far leave it, written or not. Requires: there is one.
  message get(unsigned table, std::uint32_t id);

  // The loop's side.
  /// How many changes were made.
  std::uint64_t made() const { return made_; }
  /// How many of them were handed to the engine.
  std::uint64_t submitted() const { return submitted_; }
  /// How many of them are on disk.
  std::uint64_t durable() const { return durable_; }
  bool allDurable() const { return made_ == durable_; }
  /// Whether changes wait to be handed to the engine.
  bool gathering() const { return !batch_.empty(); }
  /// Whether a batch is being written.
  bool writing() const { return writing_; }
  /// Why a commit or a read failed; empty while none has.
  const std::string& error() const { return error_; }
  /// Whether a batch is gathered and the engine would take it now. While the engine refuses, the
  /// changes that a service makes by itself gather.
  bool canSubmit() const;
  /// Why the gathered batch cannot be handed over for the time being; empty when it can, or there
  /// is none.
  std::string refusal() const { return batch_.empty() ? std::string() : engine_->refusal(); }
  /// Hands the gathered batch over. Requires: gathering(), not writing() and no error().
  void submit();
  /// Takes the outcome of the batch being written if there is one. Afterwards durable() has grown,
  /// or the outcome's error says why not; after an error the queue takes no further batch.
  std::optional<StoreEngine::Outcome> reap();
  /// Waits for the outcome of the batch being written, if there is one, also after an error.
  void finishWriting();
  /// Submits what is gathered and waits until all is on disk; the error, or empty. What the engine
  /// refuses is left, and one line on the standard output says so.
  std::string drain();
  bool failed() const { return !error_.empty(); }
  /// How long the last commit took.
  std::uint64_t lastCommitMicroseconds() const { return lastCommitMicroseconds_; }
  StoreEngine& engine() { return *engine_; }

 private:
  using RecordId = std::pair<unsigned, std::uint32_t>;         // table, id
  using Changes = std::map<RecordId, std::optional<message>>;  // empty: removed

  void failToRead(const std::string& why);
  void addUnwritten(StoreEngine::Opened& opened) const;
  void finish(const StoreEngine::Outcome& outcome);

  std::unique_ptr<StoreEngine> engine_;
  std::function<void(const std::string&)> unreadable_;
  Changes batch_;     // gathering
  Changes inFlight_;  // being written, or failed; kept for get()
  bool writing_ = false;
  std::string error_;
  std::uint64_t made_ = 0, submitted_ = 0, durable_ = 0;
  std::uint64_t lastCommitMicroseconds_ = 0;
};

/// The queue of this process, not owned, null until there is a store engine. Set by the looper.
CommitQueue* commitQueue();
void setCommitQueue(CommitQueue* queue);

}  // namespace nv
