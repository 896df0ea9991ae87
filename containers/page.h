/// One page of a get-all reply.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/message.h"

namespace nv {

/// Gathers the flat forms of records, one behind the other, until the page is full: at most 1000
/// records and at most 16384 bytes of them, but always the first record whatever its size.
class Page {
 public:
  static constexpr std::uint32_t kMaxRecords = 1000;
  static constexpr std::size_t kMaxBytes = 16384;

  /// `count`: the most records that the client wants.
  explicit Page(std::uint32_t count);

  /// Whether one more record may be offered.
  bool wantsMore() const { return ends_.size() < maxRecords_; }
  /// Copies `record` behind the others; false, and no effect, when it does not fit.
  bool take(const message& record);
  /// Inserts the records as key::objects, also when there are none.
  void writeTo(message& reply) const;

 private:
  std::size_t maxRecords_;
  std::vector<unsigned char> bytes_;
  std::vector<std::size_t> ends_;  // of each record in bytes_
};

}  // namespace nv
