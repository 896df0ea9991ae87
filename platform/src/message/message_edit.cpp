// Changes of one field: find its place, make room, write.
#include <cstring>

#include "platform/message.h"
#include "platform/src/message/array_form.h"
#include "platform/src/message/flat_table.h"

namespace nv {

namespace {

void moveBytes(unsigned char* to, const unsigned char* from, std::size_t size) {
  if (size != 0) std::memmove(to, from, size);
}

/// Adds to the header; what shrinks wraps.
void grow(unsigned char* data, std::uint32_t length, std::uint32_t fields, std::uint32_t words) {
  flat::setHeader(data, flat::length(data) + length, flat::fields(data) + fields,
                  flat::words(data) + words);
}

}  // namespace

// Whole values.

void message::setWord(std::uint32_t uid, std::uint32_t value) {
  const flat::table table(data_);
  const auto place = table.placeOf(table.words(), uid);
  if (place.held) {
    flat::setVal(data_ + place.at, value);
  } else {
    addWord(place.at, uid, value);
  }
}

void message::setNumber(std::uint32_t uid, std::uint64_t value) {
  store64(room(uid, sizeof value), value);
}

void message::setBytes(std::uint32_t uid, byte_view value) {
  unsigned char* set = setValue(uid, value);
  if (uid >= bool_array_id::tag) flat::normalise(uid, set, value.size());
}

void message::setList(std::uint32_t uid, const byte_list& list) {
  std::uint64_t size = flat::kListHead + flat::kListEnd * std::uint64_t{list.size()};
  bool ownsAny = false;
  list.forEach([&](byte_view element) {
    size += element.size();
    ownsAny |= owns(element.data());
  });
  if (!ownsAny) return flat::writeList(room(uid, size), list);
  std::vector<unsigned char> apart(static_cast<std::size_t>(size));
  flat::writeList(apart.data(), list);
  setValue(uid, apart);
}

void message::insert(const field& f) {
  if (f.uid() < flat::kFirstValue) {
    setWord(f.uid(), load32(f.bytes().data()));
  } else {
    setValue(f.uid(), f.bytes());
  }
}

/// Inserts a field of another message, whose entry is at `at` or belongs there.
void message::setField(std::uint32_t at, bool held, const field& f) {
  const byte_view value = f.bytes();
  if (f.uid() >= flat::kFirstValue) {
    flat::copyBytes(held ? resizeValue(at, value.size()) : addValue(at, f.uid(), value.size()),
                    value);
  } else if (held) {
    flat::setVal(data_ + at, load32(value.data()));
  } else {
    addWord(at, f.uid(), load32(value.data()));
  }
}

/// Copies `value`, which may stand in this message. Returns where it now is.
unsigned char* message::setValue(std::uint32_t uid, byte_view value) {
  if (owns(value.data())) {
    const std::vector<unsigned char> apart(value.begin(), value.end());
    return setValue(uid, apart);
  }
  unsigned char* set = room(uid, value.size());
  flat::copyBytes(set, value);
  return set;
}

void message::erase(std::uint32_t uid) {
  if (!isKnownType(uid)) return;
  const auto place = flat::table(data_).placeOf(uid & (kTypeMask | kIdMask));
  if (place.held) eraseAt(place.at);
}

// Array elements.

void message::appendItem(std::uint32_t uid, byte_view element) {
  const std::size_t held = valueOf(uid).size();
  unsigned char* items = room(uid, std::uint64_t{held} + element.size());
  flat::copyBytes(items + held, element);
  flat::normalise(uid, items + held, element.size());
}

void message::appendView(std::uint32_t uid, byte_view element) {
  if (owns(element.data())) {
    const std::vector<unsigned char> apart(element.begin(), element.end());
    return appendView(uid, apart);
  }
  if (!holds(uid)) store32(room(uid, flat::kListHead), 0);

  const std::size_t held = valueOf(uid).size();
  unsigned char* list = room(uid, std::uint64_t{held} + flat::kListEnd + element.size());
  const std::size_t count = load32(list);
  unsigned char* bytes = list + 4 + 4 * count;
  const std::size_t length = held - 4 - 4 * count;
  std::memmove(bytes + 4, bytes, length);
  store32(list, static_cast<std::uint32_t>(count + 1));
  store32(bytes, static_cast<std::uint32_t>(length + element.size()));
  flat::copyBytes(bytes + 4 + length, element);
}

void message::removeElement(std::uint32_t uid, std::uint32_t element) {
  const byte_view held = valueOf(uid);
  auto* items = const_cast<unsigned char*>(held.data());
  std::uint32_t kept = 0;
  for (std::size_t at = 0; at < held.size(); at += 4) {
    const std::uint32_t item = load32(items + at);
    store32(items + kept, item);
    if (item != element) kept += 4;
  }
  if (kept != held.size()) room(uid, kept);
}

// Room. Entries and values that lie behind a change move once; offsets that grow are added up
// after.

/// Place for the value of `uid`. What it held before stays as far as it fits.
unsigned char* message::room(std::uint32_t uid, std::uint64_t size) {
  const flat::table table(data_);
  const auto place = table.placeOf(table.values(), uid);
  return place.held ? resizeValue(place.at, size) : addValue(place.at, uid, size);
}

unsigned char* message::addValue(std::uint32_t at, std::uint32_t uid, std::uint64_t size) {
  reserve(length() + flat::kEntry + size + flat::padding(size));
  const auto padded = static_cast<std::uint32_t>(size) + flat::padding(size);
  const std::uint32_t offset = flat::table(data_).offsetAt(data_ + at);
  unsigned char* entry = data_ + at;
  unsigned char* value = flat::entry(data_, count()) + offset;
  unsigned char* end = data_ + length();
  moveBytes(value + flat::kEntry + padded, value, static_cast<std::size_t>(end - value));
  moveBytes(entry + flat::kEntry, entry, static_cast<std::size_t>(value - entry));
  grow(data_, flat::kEntry + padded, 1, 0);
  store32(entry, uid);
  flat::setVal(entry, offset);
  shiftOffsets(at + flat::kEntry, padded);
  return closeValue(at, static_cast<std::uint32_t>(size));
}

unsigned char* message::resizeValue(std::uint32_t at, std::uint64_t size) {
  const std::uint32_t begin = flat::table(data_).offsetAt(data_ + at);
  const std::uint32_t end = flat::table(data_).offsetAt(data_ + at + flat::kEntry);
  const std::uint64_t padded = size + flat::padding(size);
  if (padded != end - begin) {
    reserve(length() - (end - begin) + padded);
    unsigned char* heap = flat::entry(data_, count());
    const auto rest = static_cast<std::size_t>(data_ + length() - (heap + end));
    moveBytes(heap + begin + padded, heap + end, rest);
    const std::uint32_t delta = static_cast<std::uint32_t>(padded) - (end - begin);
    grow(data_, delta, 0, 0);
    shiftOffsets(at + flat::kEntry, delta);
  }
  return closeValue(at, static_cast<std::uint32_t>(size));
}

/// Zeroes the padding of the value at `at`, whose place is there, and notes its length.
unsigned char* message::closeValue(std::uint32_t at, std::uint32_t size) {
  unsigned char* entry = data_ + at;
  const std::uint32_t offset = flat::val(entry) & ~flat::kPadMask;
  const std::uint32_t pad = flat::padding(size);
  flat::setVal(entry, offset | pad);
  unsigned char* value = flat::entry(data_, count()) + offset;
  if (pad != 0) {
    unsigned char* last = value + size + pad - 4;
    store32(last, load32(last) & (~std::uint32_t{0} >> (8 * pad)));
  }
  return value;
}

void message::addWord(std::uint32_t at, std::uint32_t uid, std::uint32_t value) {
  reserve(std::uint64_t{length()} + flat::kEntry);
  unsigned char* entry = data_ + at;
  moveBytes(entry + flat::kEntry, entry, static_cast<std::size_t>(data_ + length() - entry));
  grow(data_, flat::kEntry, 1, 1);
  store32(entry, uid);
  flat::setVal(entry, value);
}

void message::eraseAt(std::uint32_t at) {
  unsigned char* entry = data_ + at;
  const std::uint32_t word = flat::uid(entry) < flat::kFirstValue;
  if (word == 0) resizeValue(at, 0);
  unsigned char* next = entry + flat::kEntry;
  moveBytes(entry, next, static_cast<std::size_t>(data_ + length() - next));
  grow(data_, -flat::kEntry, -1u, -word);
}

/// Moves the offsets of the entries from `from` on; `delta` wraps where they shrink.
void message::shiftOffsets(std::uint32_t from, std::uint32_t delta) {
  const unsigned char* end = flat::entry(data_, count());
  for (unsigned char* entry = data_ + from; entry < end; entry += flat::kEntry) {
    // The offset is the entry's upper half; a carry out of it is dropped, as it should be.
    store64(entry, load64(entry) + (std::uint64_t{delta} << 32));
  }
}

}  // namespace nv
