#include "platform/message.h"

#include <cstdlib>
#include <utility>

#include "platform/src/flat_layout.h"
#include "platform/src/flat_reader.h"

namespace nv {

namespace {

/// The last of `count` entries from `first` on with a UId up to `uid`; the first one when there is
/// none. Halves without a branch on the data, which random keys would mispredict: hence the mask.
const unsigned char* lastUpTo(const unsigned char* first, std::size_t count, std::uint32_t uid) {
  while (count > 1) {
    const std::size_t half = flat::kEntry * (count / 2);
    const std::size_t mask = -std::size_t{flat::uid(first + half) <= uid};
    first += half & mask;
    count -= count / 2;
  }
  return first;
}

}  // namespace

message::message(const message& other) : data_(inline_), capacity_(kInlineSize) {
  const std::uint32_t length = other.length();
  if (length > kInlineSize) {
    data_ = new unsigned char[length];
    capacity_ = length;
  }
  std::memcpy(data_, other.data_, length);
}

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

void message::flatten(std::vector<unsigned char>& out) const {
  const byte_view flat = bytes();
  out.assign(flat.begin(), flat.end());
}

bool message::operator==(const message& other) const {
  return length() == other.length() && std::memcmp(data_, other.data_, length()) == 0;
}

// Reading.

/// The entry of `uid`, or a neighbour of the place where it belongs. Null when its part, words or
/// values, has no entry.
const unsigned char* message::nearest(std::uint32_t uid) const {
  const std::size_t words = flat::words(data_);
  const std::size_t isValue = uid >= flat::kFirstValue;
  const std::size_t values = count() - words;
  const std::size_t size = words + (values - words) * isValue;
  if (size == 0) return nullptr;
  return lastUpTo(flat::entry(data_, words * isValue), size, uid);
}

/// The entry of `uid`, null when there is none.
const unsigned char* message::entryOf(std::uint32_t uid) const {
  const unsigned char* entry = nearest(uid);
  return entry != nullptr && flat::uid(entry) == uid ? entry : nullptr;
}

/// Where the entry of `uid` is or belongs.
message::place message::placeOf(std::uint32_t uid) const {
  const unsigned char* entry = nearest(uid);
  if (entry == nullptr) return {uid < flat::kFirstValue ? 0 : flat::words(data_), false};
  const auto index = static_cast<std::uint32_t>(entry - flat::entry(data_, 0)) / flat::kEntry;
  return {index + (flat::uid(entry) < uid ? 1 : 0), flat::uid(entry) == uid};
}

std::uint32_t message::word(std::uint32_t uid, std::uint32_t absent) const {
  const unsigned char* entry = entryOf(uid);
  return entry == nullptr ? absent : flat::val(entry);
}

byte_view message::valueOf(std::uint32_t uid) const {
  const unsigned char* entry = entryOf(uid);
  return entry == nullptr ? byte_view{} : valueAt(entry);
}

byte_view message::valueAt(const unsigned char* entry) const {
  const std::uint32_t val = flat::val(entry);
  const std::uint32_t begin = val & ~flat::kPadMask;
  const std::uint32_t end = offsetAt(entry + flat::kEntry) - (val & flat::kPadMask);
  return {heap() + begin, end - begin};
}

/// Where in the heap the value of an entry begins; at the end of the entries, where the heap ends.
std::uint32_t message::offsetAt(const unsigned char* entry) const {
  if (entry != heap()) return flat::val(entry) & ~flat::kPadMask;
  return length() - static_cast<std::uint32_t>(entry - data_);
}

field message::fieldAt(std::size_t index) const { return fieldOf(flat::entry(data_, index)); }

field message::fieldOf(const unsigned char* entry) const {
  const std::uint32_t uid = flat::uid(entry);
  if (uid < flat::kFirstValue) return {uid, {entry + 4, 4}};
  return {uid, valueAt(entry)};
}

bool message::holds(std::uint32_t uid) const { return entryOf(uid) != nullptr; }

std::optional<field> message::find(std::uint32_t uid) const {
  if (!isKnownType(uid)) return {};
  const unsigned char* entry = entryOf(uid & (kTypeMask | kIdMask));
  if (entry == nullptr) return {};
  return fieldOf(entry);
}

bool message::owns(const unsigned char* p) const {
  return !std::less<>{}(p, data_) && std::less<>{}(p, data_ + length());
}

// The buffer.

void message::reserve(std::uint64_t size) {
  if (size <= capacity_) return;
  if (size > kMaxSize) std::abort();
  const auto capacity = std::max(static_cast<std::uint32_t>(size), 2 * capacity_);
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
