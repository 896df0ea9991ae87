/// Records that outlive the services of a test.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "platform/message.h"

namespace nv::testkit {

/// Named sets of records in memory, as a device's disk would hold them: a MemoryEngine writes into
/// them, a restart is a new engine on the same MemoryStores. A test reads and writes them from
/// outside, any record under any id; what it writes is seen by stores that are opened later.
class MemoryStores {
 public:
  using Records = std::map<std::uint32_t, message>;

  /// Whether a store of this name has ever been written.
  bool has(std::string_view store) const;
  /// All records of a store, empty when there is no such store.
  const Records& records(std::string_view store) const;
  /// The record, an empty message when there is none.
  message get(std::string_view store, std::uint32_t id) const;
  void set(std::string_view store, std::uint32_t id, message record);
  void remove(std::string_view store, std::uint32_t id);
  /// Forgets everything.
  void clear() { stores_.clear(); }

 private:
  std::map<std::string, Records, std::less<>> stores_;
};

}  // namespace nv::testkit
