#include "platform/message.h"

#include <cstdlib>
#include <utility>

#include "platform/src/message/flat_reader.h"
#include "platform/src/message/flat_table.h"

namespace nv {

message::message(flat_view flat) : message() {
  if (check(flat.bytes()).empty()) assign(flat.bytes());
}

message& message::operator=(const message& other) {
  if (this != &other) assign(other.bytes());
  return *this;
}

message& message::operator=(message&& other) noexcept {
  if (this != &other) {
    release();
    take(other);
  }
  return *this;
}

void message::swap(message& other) noexcept {
  message mine(std::move(*this));
  *this = std::move(other);
  other = std::move(mine);
}

std::optional<message> message::parse(byte_view bytes, unsigned depth) {
  std::optional<message> parsed;
  if (check(bytes, depth).empty()) parsed.emplace().assign(bytes);
  return parsed;
}

std::string_view message::check(byte_view bytes, unsigned depth) {
  return flat::reader(bytes, depth).fault();
}

bool message::operator==(const message& other) const {
  return length() == other.length() && std::memcmp(data_, other.data_, length()) == 0;
}

// Reading.

bool message::holds(std::uint32_t uid) const {
  const flat::table table(data_);
  return table.find(table.partOf(uid), uid) != nullptr;
}

std::uint32_t message::word(std::uint32_t uid, std::uint32_t absent) const {
  const flat::table table(data_);
  const unsigned char* entry = table.find(table.words(), uid);
  return entry == nullptr ? absent : flat::val(entry);
}

byte_view message::valueOf(std::uint32_t uid) const {
  const flat::table table(data_);
  const unsigned char* entry = table.find(table.values(), uid);
  return entry == nullptr ? byte_view{} : table.valueAt(entry);
}

field message::fieldAt(std::uint32_t at) const {
  const flat::table table(data_);
  const unsigned char* entry = data_ + at;
  return {flat::uid(entry), table.bytesAt(entry)};
}

std::optional<field> message::find(std::uint32_t uid) const {
  if (!isKnownType(uid)) return {};
  const flat::table table(data_);
  const std::uint32_t plain = uid & (kTypeMask | kIdMask);
  const unsigned char* entry = table.find(table.partOf(plain), plain);
  if (entry == nullptr) return {};
  return field(plain, table.bytesAt(entry));
}

// The buffer.

/// Takes a buffer of its own, of exactly `size` bytes, in place of the inline one.
void message::allocate(std::uint32_t size) {
  data_ = new unsigned char[size];
  capacity_ = size;
}

void message::enlarge(std::uint64_t size) {
  if (size > kMaxSize) std::abort();
  const auto capacity = std::max(static_cast<std::uint32_t>(size), 2 * capacity_ + kInlineSize);
  auto* grown = new unsigned char[capacity];
  std::memcpy(grown, data_, length());
  release();
  data_ = grown;
  capacity_ = capacity;
}

/// `bytes` is a flat form, of another message or already checked.
void message::assign(byte_view bytes) {
  if (bytes.empty()) return clear();
  clear();
  reserve(bytes.size());
  std::memcpy(data_, bytes.data(), bytes.size());
}

void message::take(message& other) noexcept {
  data_ = other.data_;
  capacity_ = other.capacity_;
  if (other.data_ == other.inline_) {
    data_ = inline_;
    const std::uint32_t length = other.length();
    std::memcpy(inline_, other.inline_, length);
  }
  other.data_ = other.inline_;
  other.capacity_ = kInlineSize;
  other.clear();
}

}  // namespace nv
