/// What stands below `Store`: the seam behind which records are kept.
///
/// Implementations: one SQLite file (a service), memory (tests), memory that fails on demand
/// (tests).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/export.h"
#include "platform/message.h"

namespace nv {

/// One record written (`record` has a value) or removed.
struct StoreChange {
  unsigned table;
  std::uint32_t id;
  std::optional<message> record;
};

/// Changes that reach the disk together or not at all; at most one per table and id.
using StoreBatch = std::vector<StoreChange>;

/// Keeps named tables of records. Called on the loop thread only; an engine may do its writing
/// elsewhere.
class CONFKIT_API StoreEngine {
 public:
  virtual ~StoreEngine() = default;

  struct Opened {
    unsigned table;  ///< names the table in the calls below; the same for the same name
    bool firstTime;  ///< nothing was ever committed to this table
    std::vector<std::uint32_t> ids;  ///< of all undamaged records, ascending
    std::string error = {};          ///< not empty: why `ids` may lack some
  };
  /// Opens the table `name`. A missing one is made together with its first record, so that a
  /// service that is stopped before it has written its first records still finds itself there for
  /// the first time. May wait for a commit under way.
  virtual Opened open(std::string_view name) = 0;

  struct Found {
    message record;
    std::string error = {};  ///< not empty: why the record cannot be read
  };
  /// The committed record. Requires: there is one, so that not to find it is an error. May wait for
  /// a commit under way.
  virtual Found read(unsigned table, std::uint32_t id) = 0;

  /// Starts to write `batch` as one transaction and returns without waiting for the disk. Requires:
  /// the outcome of the batch before has been taken with `outcome()` or `wait()`.
  virtual void submit(StoreBatch batch) = 0;

  struct Outcome {
    std::string error;               ///< empty: the batch is on disk; else why it is not
    std::uint64_t microseconds = 0;  ///< how long the commit took
  };
  /// The outcome of the submitted batch; empty while it is still being written, and when none is.
  virtual std::optional<Outcome> outcome() = 0;
  /// The same, waiting for it. Requires: a batch is being written.
  virtual Outcome wait() = 0;
  /// `wake` is called, from any thread, when an outcome can be taken and when `refusal` has another
  /// answer than before; it must not call the engine.
  /// Once a later call of onOutcome has returned the earlier `wake` is called no more. Empty:
  /// nothing is called.
  virtual void onOutcome(std::function<void()> wake) = 0;

  /// Why changes cannot be taken now (such as a full disk), empty when they can. Asked before a
  /// change is let through; an engine that refuses looks again by itself now and then, at most once
  /// a second.
  virtual std::string refusal() = 0;
};

}  // namespace nv
