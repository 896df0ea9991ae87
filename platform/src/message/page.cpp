#include "platform/page.h"

#include "platform/keys.h"

namespace nv {

bool Page::take(const message& record) {
  const auto flat = record.bytes();
  if (!wantsMore()) return false;
  if (!ends_.empty() && bytes_.size() + flat.size() > maxBytes_) return false;
  bytes_.insert(bytes_.end(), flat.begin(), flat.end());
  ends_.push_back(bytes_.size());
  return true;
}

void Page::writeTo(message& reply) const {
  std::vector<flat_view> records;
  records.reserve(ends_.size());
  std::size_t begin = 0;
  for (const std::size_t end : ends_) {
    records.emplace_back(byte_view(bytes_).subspan(begin, end - begin));
    begin = end;
  }
  reply.insert(key::objects, records);
}

}  // namespace nv
