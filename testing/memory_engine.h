/// A store engine without a disk, which does what a test tells it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/store_engine.h"
#include "testing/memory_stores.h"

namespace nv::testkit {

/// Commits into MemoryStores: at once, or when the test says so, or not at all. What was not
/// committed is lost with the engine. Loop thread only.
class MemoryEngine : public StoreEngine {
 public:
  /// `stores` is not owned and outlives the engine.
  explicit MemoryEngine(MemoryStores& stores) : stores_(stores) {}

  // What the test says.
  /// From now on a submitted batch stays under way until `commit` or `release`.
  void hold() { holding_ = true; }
  /// Commits the batch under way, if there is one, and goes on holding.
  void commit();
  /// As `commit`, and the batches after it are committed at once again.
  void release();
  /// The `k`-th commit from now (1: the next) fails with `text` and leaves no trace. Later ones
  /// succeed.
  void failCommit(unsigned k, std::string text);
  /// The power fails after `k` more record changes: these are kept, even the first ones of a batch
  /// (which a disk engine would undo), in the order of table and id; nothing later is, and each
  /// commit fails.
  void cutAfter(unsigned k) { changesLeft_ = k; }
  /// From now on records can neither be read nor listed, because of `text`; empty: they can.
  void failReads(std::string text) { unreadable_ = std::move(text); }
  /// What refusal() says from now on; empty: changes are taken.
  void refuse(std::string text) { refusal_ = std::move(text); }
  /// How many batches were committed.
  unsigned commits() const { return commits_; }

  Opened open(std::string_view name) override;
  Found read(unsigned table, std::uint32_t id) override;
  void submit(StoreBatch batch) override;
  std::optional<Outcome> outcome() override;
  /// Commits a held batch.
  Outcome wait() override;
  void onOutcome(std::function<void()> wake) override { wake_ = std::move(wake); }
  std::string refusal() override { return refusal_; }

 private:
  std::string write();
  void apply(StoreChange& change);

  MemoryStores& stores_;
  std::vector<std::string> names_;  // by table
  bool holding_ = false;
  std::optional<StoreBatch> underWay_;
  std::optional<Outcome> outcome_;
  std::function<void()> wake_;
  std::string refusal_;
  std::string unreadable_;
  unsigned commits_ = 0;
  unsigned commitsBeforeFailure_ = 0;  // 0: none is to fail
  std::string failure_;
  std::optional<unsigned> changesLeft_;
};

}  // namespace nv::testkit
