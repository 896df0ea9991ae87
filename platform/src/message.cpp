#include "platform/message.h"

#include <cstdlib>
#include <utility>

#include "platform/src/flat_layout.h"
#include "platform/src/flat_reader.h"

namespace nv {

namespace {

/// The number of entries from `first` on, of `count`, with a UId below `uid`. Halves without a
/// branch on the data, which random keys would mispredict.
std::size_t countBelow(const unsigned char* first, std::size_t count, std::uint32_t uid) {
  if (count == 0) return 0;
  const unsigned char* base = first;
  while (count > 1) {
    const std::size_t half = count / 2;
    const std::size_t mask = -std::size_t{flat::uid(base + flat::kEntry * (half - 1)) < uid};
    base += flat::kEntry * half & mask;
    count -= half;
  }
  const std::size_t below = flat::uid(base) < uid;
  return static_cast<std::size_t>(base - first) / flat::kEntry + below;
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

void message::clear() noexcept { flat::setHeader(data_, flat::kHeader, 0, 0); }

bool message::operator==(const message& other) const {
  return length() == other.length() && std::memcmp(data_, other.data_, length()) == 0;
}

// Reading.

std::size_t message::lowerBound(std::uint32_t uid) const {
  const std::size_t words = flat::words(data_);
  if (uid < flat::kFirstValue) return countBelow(flat::entry(data_, 0), words, uid);
  return words + countBelow(flat::entry(data_, words), count() - words, uid);
}

bool message::holdsAt(std::size_t index, std::uint32_t uid) const {
  return index < count() && flat::uid(flat::entry(data_, index)) == uid;
}

std::size_t message::indexOf(std::uint32_t uid) const {
  const std::size_t index = lowerBound(uid);
  return holdsAt(index, uid) ? index : kAbsent;
}

std::uint32_t message::word(std::uint32_t uid, std::uint32_t absent) const {
  const std::size_t index = indexOf(uid);
  return index == kAbsent ? absent : flat::val(flat::entry(data_, index));
}

byte_view message::valueOf(std::uint32_t uid) const {
  const std::size_t index = indexOf(uid);
  return index == kAbsent ? byte_view{} : valueAt(index);
}

byte_view message::valueAt(std::size_t index) const {
  const std::uint32_t val = flat::val(flat::entry(data_, index));
  const std::uint32_t begin = val & ~flat::kPadMask;
  const std::uint32_t end = offsetAt(index + 1) - (val & flat::kPadMask);
  return {flat::entry(data_, count()) + begin, end - begin};
}

/// Where in the heap the value of an entry begins; at the end of the entries, where the heap ends.
std::uint32_t message::offsetAt(std::size_t index) const {
  if (index < count()) return flat::val(flat::entry(data_, index)) & ~flat::kPadMask;
  return length() - static_cast<std::uint32_t>(flat::entry(data_, count()) - data_);
}

field message::fieldAt(std::size_t index) const {
  const unsigned char* entry = flat::entry(data_, index);
  const std::uint32_t uid = flat::uid(entry);
  if (uid < flat::kFirstValue) return {uid, {entry + 4, 4}};
  return {uid, valueAt(index)};
}

std::optional<field> message::find(std::uint32_t uid) const {
  if (!isKnownType(uid)) return {};
  const std::size_t index = indexOf(uid & (kTypeMask | kIdMask));
  if (index == kAbsent) return {};
  return fieldAt(index);
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
  other.reset();
}

/// An empty message in its own buffer; whatever `data_` was is somebody else's.
void message::reset() noexcept {
  data_ = inline_;
  capacity_ = kInlineSize;
  clear();
}

void message::release() noexcept {
  if (data_ != inline_) delete[] data_;
}

}  // namespace nv
