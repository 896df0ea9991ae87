#include "bench/support/chain_file.h"

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <random>

#include <benchmark/benchmark.h>

#include "bench/support/bars.h"
#include "bench/support/made_up_store.h"
#include "platform/store.h"
#include "platform/store_file.h"
#include "testing/kit.h"

namespace bench {

namespace {
constexpr std::size_t kBatch = 10000;

void write(nv::StoreEngine& engine, nv::StoreBatch batch) {
  if (batch.empty()) return;
  engine.submit(std::move(batch));
  if (!engine.wait().error.empty()) std::abort();
}
}  // namespace

void writeChain(const std::filesystem::path& file, const std::vector<std::uint32_t>& ids) {
  std::vector<std::uint32_t> nextOf(ids.size() + 1, nv::kNoId);
  for (std::size_t k = 0; k + 1 < ids.size(); ++k) nextOf[ids[k]] = ids[k + 1];

  const auto engine = openChain(file);
  const auto table = engine->open("chain").table;
  auto head = chainHead();
  head.insert(nv::key::nextId, ids.front());
  nv::StoreBatch batch{{table, nv::kHeadId, head}};
  for (std::uint32_t id = 1; id < nextOf.size(); ++id) {
    auto record = chainRecord(id, 0);
    record.insert(nv::key::nextId, nextOf[id]);
    batch.push_back({table, id, std::move(record)});
    if (batch.size() == kBatch) write(*engine, std::exchange(batch, {}));
  }
  write(*engine, std::move(batch));
}

std::unique_ptr<nv::StoreEngine> openChain(const std::filesystem::path& file) {
  auto engine = nv::openStoreFile(file, nullptr);
  if (engine == nullptr) std::abort();
  return engine;
}

std::vector<std::uint32_t> ascending(std::uint32_t count) {
  std::vector<std::uint32_t> ids(count);
  std::iota(ids.begin(), ids.end(), 1u);
  return ids;
}

std::vector<std::uint32_t> shuffled(std::uint32_t count) {
  auto ids = ascending(count);
  std::shuffle(ids.begin(), ids.end(), std::mt19937(1));
  return ids;
}

double readAlone(const std::filesystem::path& file, const std::vector<std::uint32_t>& ids) {
  nv::testkit::Kit kit(openChain(file));
  return timeOf([&] {
    const nv::Store store("chain");
    for (const auto id : ids) benchmark::DoNotOptimize(store.get(id).count());
  });
}

}  // namespace bench
