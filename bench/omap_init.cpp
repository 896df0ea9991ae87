// A store file becomes the objects of a map.
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <vector>

#include "bench/omap_bench.h"
#include "bench/support/chain_file.h"
#include "bench/support/clients.h"
#include "bench/support/no_refusals.h"
#include "testing/kit.h"
#include "tests/support/temp_directory.h"

namespace bench {

namespace {

double initFrom(const std::filesystem::path& file, std::size_t count) {
  nv::testkit::Kit kit(openChain(file));
  const NoRefusals watching;
  std::optional<Vlans> map;
  const double time = timeOf([&] {
    map.emplace("chain");
    map->init();
  });
  if (map->objects.size() != count) std::abort();
  return time;
}

double compareInit(const char* what, const std::vector<std::uint32_t>& ids, Bars& bars) {
  const TempDirectory place(benchDirectory());
  const auto file = place / "chain.db";
  writeChain(file, ids);
  Fastest init, read;
  const auto count = static_cast<double>(ids.size());
  for (unsigned n = 0; n < 3; ++n) {
    read.take(readAlone(file, ids) / count);
    init.take(initFrom(file, ids.size()) / count);
  }
  std::printf("%s: restoring %.2f us a record, reading %.2f us\n", what, init.time() * 1e6,
              read.time() * 1e6);
  bars.atMost(std::string(what) + ", restoring / reading", init.time() / read.time(), 3);
  return init.time();
}

}  // namespace

void init(Bars& bars) {
  const double small = compareInit("100,000 records", ascending(100000), bars);
  const double large = compareInit("1,000,000 records", ascending(1000000), bars);
  bars.atMost("restoring a record, 1,000,000 / 100,000", large / small, 1.5);
  compareInit("100,000 records in random order", shuffled(100000), bars);
}

}  // namespace bench
