// A store file becomes the items of an ordered manager.
#include <cstdio>
#include <cstdlib>

#include "bench/cfgman_bench.h"
#include "bench/support/chain_file.h"
#include "bench/support/clients.h"
#include "bench/support/no_refusals.h"
#include "testing/kit.h"
#include "tests/support/temp_directory.h"

namespace bench {

namespace {

constexpr unsigned kTurns = 3;

double load(const std::filesystem::path& file, std::size_t items) {
  nv::testkit::Kit kit(openChain(file));
  const NoRefusals watching;
  Manager manager(5);
  const double time = timeOf([&] {
    manager.cm.setStore("chain", true);
    manager.runAll();
  });
  if (manager.cm.items.size() != items) std::abort();
  return time;
}

struct Times {
  Fastest load, read;  ///< of one record
};

Times measure(const std::vector<std::uint32_t>& ids) {
  const TempDirectory place(benchDirectory());
  const auto file = place / "chain.db";
  writeChain(file, ids);
  Times times;
  const auto count = static_cast<double>(ids.size());
  for (unsigned turn = 0; turn < kTurns; ++turn) {
    times.read.take(readAlone(file, ids) / count);
    times.load.take(load(file, ids.size()) / count);
  }
  return times;
}

Times compare(const char* what, const std::vector<std::uint32_t>& ids, Bars& bars) {
  const auto times = measure(ids);
  std::printf("%s: loading %.2f us a record, reading %.2f us\n", what, times.load.time() * 1e6,
              times.read.time() * 1e6);
  bars.atMost(std::string(what) + ", loading / reading", times.load.time() / times.read.time(), 3);
  return times;
}

}  // namespace

void loading(Bars& bars) {
  const auto small = compare("100,000 records", ascending(100000), bars);
  const auto large = compare("1,000,000 records", ascending(1000000), bars);
  bars.atMost("loading a record, 1,000,000 / 100,000", large.load.time() / small.load.time(), 1.5);
  compare("100,000 records in random order", shuffled(100000), bars);
}

}  // namespace bench
