/// Records of a service, each a message under a 32-bit id.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/allocator.h"
#include "platform/export.h"
#include "platform/message.h"

namespace nv {

/// One named set of records in the service's store file. Event-loop thread only.
///
/// `set` and `remove` return at once. All changes made in one pass of the loop go to the disk as
/// one transaction, and what the loop sends because of them leaves the process only when they are
/// there; when they cannot be written the process ends (see Looper). `get` sees every change,
/// written or not.
///
/// The records outlive this object; two objects must not hold one name at the same time.
class CONFKIT_API Store {
 public:
  /// Opens the records called `name`, an empty set when there is none. Requires: the process has a
  /// store engine (Service, or the test kit); without one the program stops with a line that says
  /// so.
  explicit Store(std::string_view name);
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  /// The record under `id`, an empty message when there is none. Reads the disk unless the record
  /// was changed since the last commit, and then may wait for a commit that is under way. The
  /// process ends when the disk cannot be read (see Looper).
  message get(std::uint32_t id) const;
  void set(std::uint32_t id, const message& record);
  /// No effect when there is no such record.
  void remove(std::uint32_t id);

  /// The ids that have a record, ascending.
  const Allocator& ids() const { return ids_; }
  bool has(std::uint32_t id) const { return ids_.isAllocated(id); }
  std::uint64_t count() const { return ids_.used(); }
  /// Whether nothing had ever been written under this name before this object was made.
  bool firstTime() const { return firstTime_; }
  const std::string& name() const { return name_; }

 private:
  std::string name_;
  unsigned table_ = 0;
  bool firstTime_ = false;
  Allocator ids_{0, 0xffffffff};
};

}  // namespace nv
