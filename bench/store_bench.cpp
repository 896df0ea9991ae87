// The store file beside the bare disk. Every row works in one directory: CONFKIT_BENCH_DIR, or the
// current one, which decides what is measured (a file system in memory flushes nothing).
//
//   commit/N      one durable transaction of N records, each of about 200 bytes
//   bareFlush/B   write B bytes and fdatasync: what a commit cannot do without
//   load/N        open a file of N records and read its ids (which checks every record)
//   bareRead      read the same file without looking at it
//   allRecords/N  load and read every record
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include "platform/message.h"
#include "platform/store_file.h"

namespace {

namespace fs = std::filesystem;

constexpr unsigned kRecords = 100000;

fs::path directory() {
  const char* given = std::getenv("CONFKIT_BENCH_DIR");
  const fs::path made = fs::path(given ? given : ".") / "store-bench.tmp";
  fs::create_directories(made);
  return made;
}

struct Cleanup {
  ~Cleanup() { fs::remove_all(directory()); }
} cleanup;

nv::message record(unsigned n) {
  return nv::message()
      .insert(nv::u32_id(0xfe0001), n)
      .insert(nv::string_id(0xfe0010), "host-" + std::to_string(n))
      .insert(nv::string_id(2), std::string(120, static_cast<char>('a' + n % 26)));
}

void fill(const fs::path& file, unsigned count) {
  const auto engine = nv::openStoreFile(file, nullptr);
  const unsigned table = engine->open("hosts").table;
  nv::StoreBatch batch;
  for (unsigned i = 0; i < count; ++i) batch.push_back({table, i, record(i)});
  engine->submit(std::move(batch));
  if (!engine->wait().error.empty()) std::abort();
}

void commit(benchmark::State& state) {
  const fs::path file = directory() / "commit.db";
  fill(file, 1000);
  const auto engine = nv::openStoreFile(file, nullptr);
  const unsigned table = engine->open("hosts").table;
  const auto size = static_cast<unsigned>(state.range(0));
  unsigned next = 0;
  for (auto _ : state) {
    nv::StoreBatch batch;
    for (unsigned i = 0; i < size; ++i, ++next)
      batch.push_back({table, next * 37 % 1000, record(next)});
    engine->submit(std::move(batch));
    if (!engine->wait().error.empty()) state.SkipWithError("commit failed");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(commit)->Arg(1)->Arg(16)->UseRealTime();

void bareFlush(benchmark::State& state) {
  const std::vector<char> bytes(static_cast<std::size_t>(state.range(0)), 'x');
  const fs::path file = directory() / "bare";
  const int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  off_t at = 0;
  // Like a log: grows to 256 KiB, then starts over.
  for (auto _ : state) {
    if (::pwrite(fd, bytes.data(), bytes.size(), at) < 0 || ::fdatasync(fd) != 0)
      state.SkipWithError("write failed");
    at = (at + state.range(0)) % (256 * 1024);
  }
  ::close(fd);
}
BENCHMARK(bareFlush)->Arg(200)->Arg(1048)->UseRealTime();

fs::path fullFile() {
  static const fs::path file = [] {
    const fs::path made = directory() / "full.db";
    fill(made, kRecords);
    return made;
  }();
  return file;
}

void load(benchmark::State& state) {
  const fs::path file = fullFile();
  for (auto _ : state) {
    const auto engine = nv::openStoreFile(file, nullptr);
    benchmark::DoNotOptimize(engine->open("hosts").ids.size());
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(load)->Name("load/100000")->Unit(benchmark::kMillisecond)->UseRealTime();

void allRecords(benchmark::State& state) {
  const fs::path file = fullFile();
  for (auto _ : state) {
    const auto engine = nv::openStoreFile(file, nullptr);
    const auto table = engine->open("hosts");
    for (const std::uint32_t id : table.ids)
      benchmark::DoNotOptimize(engine->read(table.table, id).record.count());
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}
BENCHMARK(allRecords)->Name("allRecords/100000")->Unit(benchmark::kMillisecond)->UseRealTime();

void bareRead(benchmark::State& state) {
  const fs::path file = fullFile();
  std::vector<char> buffer(64 * 1024);
  for (auto _ : state) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    while (::read(fd, buffer.data(), buffer.size()) > 0) benchmark::DoNotOptimize(buffer.data());
    ::close(fd);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(fs::file_size(file)));
}
BENCHMARK(bareRead)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
