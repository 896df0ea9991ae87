/// One page of a get-all reply.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/export.h"
#include "platform/message.h"

namespace nv {

/// Gathers the flat forms of records, one behind the other, until the page is full: at most so many
/// records and so many bytes of them, but always the first record whatever its size.
class CONFKIT_API Page {
 public:
  Page(std::uint32_t maxRecords, std::size_t maxBytes)
      : maxRecords_(maxRecords), maxBytes_(maxBytes) {}

  /// Whether one more record may be offered.
  bool wantsMore() const { return ends_.size() < maxRecords_; }
  /// Copies `record` behind the others; false, and no effect, when it does not fit.
  bool take(const message& record);
  /// Inserts the records as key::objects, also when there are none.
  void writeTo(message& reply) const;

 private:
  std::size_t maxRecords_, maxBytes_;
  std::vector<unsigned char> bytes_;
  std::vector<std::size_t> ends_;  // of each record in bytes_
};

}  // namespace nv
