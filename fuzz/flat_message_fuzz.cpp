// Bytes from outside become a message or are refused; what is accepted is canonical and survives
// use.
#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "platform/message.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

/// The same fields, read and inserted one by one through their types.
nv::message copiedByType(const nv::message& m) {
  nv::message copy;
  for (const nv::field f : m) {
    nv::withId(f.uid(), [&](auto id) { copy.insert(id, m.get(id)); });
  }
  return copy;
}

void dump(const nv::message& m) {
  std::ostringstream os;
  m.dump2(os, "", 2);
}

/// Taken apart and put together again: halves of the fields, merged both ways.
void splitAndMerge(const nv::message& whole) {
  nv::message even = whole;
  nv::message odd;
  bool turn = false;
  for (const nv::field f : whole) {
    if ((turn = !turn)) continue;
    odd.insert(f);
    even.erase(f.uid());
  }
  nv::message joined = odd;
  joined.merge(even);
  require(joined == whole);
  nv::message prior;
  merge(even, odd, prior);
  require(even == whole && prior.empty());
  joined.exclude(whole);
  require(joined.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const nv::byte_view bytes(data, size);
  const auto parsed = nv::message::parse(bytes);
  require(parsed.has_value() == nv::message::check(bytes).empty());
  if (!parsed) return 0;
  require(std::ranges::equal(parsed->bytes(), bytes));
  require(parsed->max_length() == size);
  require(copiedByType(*parsed) == *parsed);
  dump(*parsed);
  splitAndMerge(*parsed);
  return 0;
}
