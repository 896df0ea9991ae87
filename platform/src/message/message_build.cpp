// A message from a list of fields: ranked, then written once.
#include <algorithm>
#include <array>

#include "platform/message.h"
#include "platform/src/message/array_form.h"
#include "platform/src/message/flat_writer.h"

namespace nv {

namespace {

/// The order in which a list of fields is written: ascending by UId, the last of several for one
/// field.
class field_order {
 public:
  template <class UidAt>
  field_order(std::size_t count, UidAt uidAt) {
    std::uint64_t* keys = few_.data();
    if (count > few_.size()) {
      many_.resize(count);
      keys = many_.data();
    }
    for (std::size_t k = 0; k < count; ++k) keys[k] = std::uint64_t{uidAt(k)} << 32 | k;
    std::sort(keys, keys + count);
    const auto sameField = [](std::uint64_t a, std::uint64_t b) { return a >> 32 == b >> 32; };
    std::uint64_t* end = keys;
    for (std::size_t k = 0; k < count; ++k) {
      if (k + 1 == count || !sameField(keys[k], keys[k + 1])) *end++ = keys[k];
    }
    ordered_ = {keys, end};
  }

  std::size_t size() const { return ordered_.size(); }
  std::uint32_t operator[](std::size_t k) const { return static_cast<std::uint32_t>(ordered_[k]); }

 private:
  std::array<std::uint64_t, 64> few_;
  std::vector<std::uint64_t> many_;
  std::span<const std::uint64_t> ordered_;
};

}  // namespace

message::message(std::initializer_list<field_value> fields)
    : message(std::span<const field_value>(fields.begin(), fields.size())) {}

message::message(std::span<const field_value> fields) : message() {
  if (fields.empty()) return;
  const field_order order(fields.size(), [&](std::size_t k) { return fields[k].uid_; });
  std::size_t words = 0;
  std::uint64_t size = flat::kHeader + flat::kEntry * std::uint64_t{order.size()};
  for (std::size_t k = 0; k < order.size(); ++k) {
    const field_value& f = fields[order[k]];
    if (f.uid_ < flat::kFirstValue) {
      ++words;
    } else {
      size += f.room();
    }
  }
  reserve(size);
  flat::writer writer(data_, size, order.size(), words);
  for (std::size_t k = 0; k < order.size(); ++k) fields[order[k]].write(writer);
}

/// Bytes in the heap, padding included.
std::uint64_t field_value::room() const {
  const std::uint64_t size = this->size();
  return size + flat::padding(size);
}

std::uint64_t field_value::size() const {
  switch (uid_ & kTypeMask) {
    case bool_id::tag:
    case u32_id::tag: return 0;
    case u64_id::tag: return sizeof number_;
    case string_array_id::tag:
    case message_array_id::tag:
    case raw_array_id::tag: return flat::listSize(list_);
    default: return bytes_.size();
  }
}

void field_value::write(flat::writer& writer) const {
  if (uid_ < flat::kFirstValue) return writer.word(uid_, static_cast<std::uint32_t>(number_));
  const auto length = static_cast<std::uint32_t>(size());
  unsigned char* place = writer.value(uid_, length);
  switch (uid_ & kTypeMask) {
    case u64_id::tag: return store64(place, number_);
    case string_array_id::tag:
    case message_array_id::tag:
    case raw_array_id::tag: return flat::writeList(place, list_);
    default: break;
  }
  flat::copyBytes(place, bytes_);
  flat::normalise(uid_, place, length);
}

}  // namespace nv
