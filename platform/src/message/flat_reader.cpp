#include "platform/src/message/flat_reader.h"

#include "platform/message.h"

namespace nv::flat {

namespace {

bool isTruth(unsigned char byte) { return byte <= 1; }

bool areTruths(byte_view bytes) {
  for (const unsigned char byte : bytes) {
    if (!isTruth(byte)) return false;
  }
  return true;
}

/// Whether the last `pad` of `bytes` are zero.
bool endsInZeros(byte_view bytes, std::size_t pad) {
  for (const unsigned char byte : bytes.last(pad)) {
    if (byte != 0) return false;
  }
  return true;
}

/// The size that every value of the type has, or of which its size is a multiple; 1 for any size.
std::size_t unit(std::uint32_t type) {
  switch (type) {
    case u64_id::tag:
    case u64_array_id::tag: return 8;
    case addr6_id::tag:
    case addr6_array_id::tag: return sizeof(addr6);
    case u32_array_id::tag: return 4;
    default: return 1;
  }
}

}  // namespace

std::string_view reader::fault() {
  if (bytes_.empty()) return {};
  if (const auto text = headerFault(); !text.empty()) return text;
  if (const auto text = orderFault(); !text.empty()) return text;
  if (const auto text = wordsFault(); !text.empty()) return text;
  return valuesFault();
}

std::string_view reader::headerFault() {
  if (bytes_.size() < kHeader) return "shorter than the header";
  if (bytes_.size() > message::kMaxSize) return "too long";
  if (length(bytes_.data()) != bytes_.size()) return "not as long as it says";
  if (bytes_.size() % 4 != 0) return "length is not a multiple of 4";
  fields_ = fields(bytes_.data());
  words_ = words(bytes_.data());
  if (fields_ == 0) return "no field";
  if (fields_ > (bytes_.size() - kHeader) / kEntry) return "more fields than bytes";
  if (words_ > fields_) return "more words than fields";
  return {};
}

std::string_view reader::orderFault() const {
  const unsigned char* at = entry(bytes_.data(), 0);
  std::uint32_t last = 0;
  std::uint32_t bad = 0;
  for (std::size_t k = 0; k < fields_; ++k, at += kEntry) {
    const std::uint32_t next = uid(at);
    if (!isKnownType(next) || (next & ~(kTypeMask | kIdMask)) != 0) return "unknown type";
    bad |= static_cast<std::uint32_t>(k != 0 && next <= last);
    last = next;
  }
  if (bad != 0) return "fields out of order";
  return {};
}

std::string_view reader::wordsFault() const {
  if (words_ > 0 && uid(entry(bytes_.data(), words_ - 1)) >= kFirstValue) {
    return "wrong number of words";
  }
  if (words_ < fields_ && uid(entry(bytes_.data(), words_)) < kFirstValue) {
    return "wrong number of words";
  }
  for (std::size_t k = 0; k < words_; ++k) {
    const unsigned char* at = entry(bytes_.data(), k);
    if (uid(at) >= u32_id::tag) break;
    if (val(at) > 1) return "flag is neither 0 nor 1";
  }
  return {};
}

std::string_view reader::valuesFault() const {
  const byte_view heap = bytes_.subspan(kHeader + kEntry * fields_);
  std::size_t begin = 0;
  for (std::size_t k = words_; k < fields_; ++k) {
    const unsigned char* at = entry(bytes_.data(), k);
    const std::size_t end =
        k + 1 < fields_ ? val(at + kEntry) & ~kPadMask : static_cast<std::size_t>(heap.size());
    const std::size_t pad = val(at) & kPadMask;
    if ((val(at) & ~kPadMask) != begin) return "gap between values";
    if (end < begin || end > heap.size() || end - begin < pad) return "value beyond the end";
    const byte_view padded = heap.subspan(begin, end - begin);
    if (!endsInZeros(padded, pad)) return "padding is not zero";
    const auto text = valueFault(uid(at), padded.first(padded.size() - pad));
    if (!text.empty()) return text;
    begin = end;
  }
  return begin == heap.size() ? std::string_view{} : "bytes after the last value";
}

std::string_view reader::valueFault(std::uint32_t uid, byte_view value) const {
  const std::uint32_t type = uid & kTypeMask;
  switch (type) {
    case string_id::tag:
    case raw_id::tag: return {};
    case u64_id::tag:
    case addr6_id::tag:
      return value.size() == unit(type) ? std::string_view{} : "wrong size of a value";
    case message_id::tag: return nestedFault(value);
    case bool_array_id::tag:
      return areTruths(value) ? std::string_view{} : "flag is neither 0 nor 1";
    case string_array_id::tag:
    case message_array_id::tag:
    case raw_array_id::tag: return listFault(type, value);
    default: return value.size() % unit(type) == 0 ? std::string_view{} : "part of an element";
  }
}

std::string_view reader::listFault(std::uint32_t type, byte_view list) const {
  if (list.size() < 4) return "list without a count";
  const std::size_t count = load32(list.data());
  if (count > (list.size() - 4) / 4) return "more elements than bytes";
  const unsigned char* ends = list.data() + 4;
  const byte_view elements = list.subspan(4 + 4 * count);
  std::size_t begin = 0;
  for (std::size_t k = 0; k < count; ++k) {
    const std::size_t end = load32(ends + 4 * k);
    if (end < begin || end > elements.size()) return "element beyond the end";
    if (type == message_array_id::tag) {
      const auto text = nestedFault(elements.subspan(begin, end - begin));
      if (!text.empty()) return text;
    }
    begin = end;
  }
  return begin == elements.size() ? std::string_view{} : "bytes after the last element";
}

std::string_view reader::nestedFault(byte_view nested) const {
  if (nested.empty() || depth_ == message::kNestedUnread) return {};
  if (depth_ == 0) return "nested too deeply";
  return reader(nested, depth_ - 1).fault();
}

}  // namespace nv::flat
