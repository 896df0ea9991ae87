// The floor: the bytes of the record, copied and compared by the C library.
#include <cstring>

#include <benchmark/benchmark.h>

#include "bench/message_record.h"

namespace bench {
namespace {

using benchmark::DoNotOptimize;
using benchmark::State;
using bytes = std::vector<unsigned char>;

bytes recordBytes(int fields) {
  bytes flat;
  record(groups(fields)).flatten(flat);
  return flat;
}

void copy(State& state, int fields) {
  bytes from = recordBytes(fields);
  bytes to(from.size());
  std::size_t size = from.size();
  for (auto _ : state) {
    DoNotOptimize(size);
    std::memcpy(to.data(), from.data(), size);
    DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
}

void compare(State& state, int fields) {
  bytes a = recordBytes(fields);
  bytes b = a;
  std::size_t size = a.size();
  for (auto _ : state) {
    DoNotOptimize(size);
    benchmark::ClobberMemory();
    DoNotOptimize(std::memcmp(a.data(), b.data(), size));
  }
}

void append(State& state, int fields) {
  const bytes from = recordBytes(fields);
  bytes to;
  to.reserve(1024);
  for (auto _ : state) {
    to.clear();
    to.insert(to.end(), from.begin(), from.end());
    DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
}

/// The same bytes, fetched from record after record, into memory got for them.
void page(State& state, int fields) {
  const std::vector<nv::message> records(kPage, record(groups(fields)));
  const std::size_t size = kPage * records[0].max_length();
  for (auto _ : state) {
    auto* to = new unsigned char[size];
    auto* end = to;
    for (const nv::message& one : records) {
      const nv::byte_view flat = one.bytes();
      std::memcpy(end, flat.data(), flat.size());
      end += flat.size();
    }
    DoNotOptimize(to);
    benchmark::ClobberMemory();
    delete[] to;
  }
}

[[maybe_unused]] const bool added = [] {
  add("copy", "memcpy", copy);
  add("equality", "memcmp", compare);
  add("to flat", "append", append);
  add("page of 1000", "memcpy", page);
  return true;
}();

}  // namespace
}  // namespace bench
