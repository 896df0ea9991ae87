// Bytes from outside become a message or are refused; what is accepted is canonical and survives
// use.
#include <algorithm>
#include <sstream>

#include "fuzz/require.h"
#include "tests/support/random_message.h"

namespace {

using fuzz::require;

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
  require(nv::testkit::copiedByType(*parsed) == *parsed);
  std::ostringstream dumped;
  parsed->dump2(dumped, "", 2);
  splitAndMerge(*parsed);
  return 0;
}
