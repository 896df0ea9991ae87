// Whole messages against each other, and messages from lists of fields.
#include <algorithm>

#include "platform/message.h"
#include "platform/src/message/flat_table.h"
#include "platform/src/message/flat_writer.h"

namespace nv {

namespace {

/// What a flat form of some fields needs, counted before it is written.
struct needs {
  std::size_t fields = 0;
  std::size_t words = 0;
  std::uint64_t heap = 0;

  void add(const field& f) {
    ++fields;
    if (f.uid() < flat::kFirstValue) {
      ++words;
    } else {
      heap += f.bytes().size() + flat::padding(f.bytes().size());
    }
  }
  std::uint64_t length() const {
    return flat::kHeader + flat::kEntry * std::uint64_t{fields} + heap;
  }
};

void write(flat::writer& writer, const field& f) {
  if (f.uid() < flat::kFirstValue) {
    writer.word(f.uid(), load32(f.bytes().data()));
  } else {
    writer.value(f.uid(), f.bytes());
  }
}

/// Calls `take` with each field of both, ascending; of a field that both hold with that of `over`.
template <class Take>
void forEachMerged(const message& base, const message& over, Take take) {
  auto old = base.begin();
  for (const field f : over) {
    for (; old != base.end() && (*old).uid() < f.uid(); ++old) take(*old);
    if (old != base.end() && (*old).uid() == f.uid()) ++old;
    take(f);
  }
  for (; old != base.end(); ++old) take(*old);
}

/// Updates of up to this many fields are inserted one by one, larger ones merged in one pass.
constexpr std::size_t kFewFields = 8;

}  // namespace

void message::merge(const message& other) {
  if (this == &other) return;
  if (other.count() > kFewFields) return mergeAll(other);
  for (const field f : other) {
    const auto place = flat::table(data_).placeOf(f.uid());
    setField(place.at, place.held, f);
  }
}

void message::mergeAll(const message& other) {
  needs all;
  forEachMerged(*this, other, [&](const field& f) { all.add(f); });
  message merged;
  merged.reserve(all.length());
  flat::writer writer(merged.data_, all.length(), all.fields, all.words);
  forEachMerged(*this, other, [&](const field& f) { write(writer, f); });
  *this = std::move(merged);
}

template <class Wanted>
message message::only(Wanted isWanted) const {
  needs wanted;
  for (const field f : *this) {
    if (isWanted(f)) wanted.add(f);
  }
  message out;
  if (wanted.fields == 0) return out;
  out.reserve(wanted.length());
  flat::writer writer(out.data_, wanted.length(), wanted.fields, wanted.words);
  for (const field f : *this) {
    if (isWanted(f)) write(writer, f);
  }
  return out;
}

void message::exclude(const message& other) {
  *this = only([&](const field& f) {
    const auto same = other.find(f.uid());
    return !same || *same != f;
  });
}

void merge(message& target, const message& source, message& prior) {
  if (&target == &source) return;
  if (&prior == &source) return merge(target, message(source), prior);
  if (source.count() > kFewFields) {
    prior.merge(target.only([&](const field& f) {
      const auto now = source.find(f.uid());
      return now && *now != f;
    }));
    return target.mergeAll(source);
  }
  for (const field f : source) {
    const auto place = flat::table(target.data_).placeOf(f.uid());
    if (place.held) {
      const field old = target.fieldAt(place.at);
      if (old == f) continue;
      const auto keep = flat::table(prior.data_).placeOf(f.uid());
      prior.setField(keep.at, keep.held, old);
    }
    target.setField(place.at, place.held, f);
  }
}

}  // namespace nv
