// All objects of a map, page by page, against copies of the same bytes.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/omap_bench.h"
#include "bench/support/no_refusals.h"
#include "platform/keys.h"
#include "testing/kit.h"

namespace bench {

namespace {

namespace key = nv::key;
using nv::message;

/// All objects by pages, each asked for from where the one before ended; the bytes of their
/// records.
std::size_t getAll(Vlans& map) {
  std::size_t bytes = 0;
  for (std::uint32_t start = nv::kNoId;;) {
    const auto page = map.cmdGetAll({}, start, nv::kNoId);
    bytes += page.bytes().size();
    if (!page.has(key::startId)) return bytes;
    start = page.get(key::startId);
  }
}

/// The flat bytes of the same records in pages of as many bytes, copied.
class Copies {
 public:
  Copies(Vlans& map, std::size_t bytes) : from_(bytes, 'x') {
    for (OObject* obj = map.getNextObj(nullptr); obj; obj = map.getNextObj(obj)) {
      message record{{key::objectId, obj->id}};
      obj->getConfig(record, nv::kDefaultFlags);
      records_.push_back(record.flat());
    }
  }
  void byPage() {
    for (std::size_t at = 0; at < from_.size(); at += page_.size()) {
      std::memcpy(page_.data(), from_.data() + at, std::min(page_.size(), from_.size() - at));
      benchmark::ClobberMemory();
    }
  }
  void byRecord() {
    std::size_t at = 0;
    for (const auto& record : records_) {
      if (at + record.size() > page_.size()) at = 0;
      std::memcpy(page_.data() + at, record.data(), record.size());
      at += record.size();
      benchmark::ClobberMemory();
    }
  }

 private:
  std::vector<unsigned char> from_;
  std::vector<nv::flat_message> records_;
  std::vector<unsigned char> page_ = std::vector<unsigned char>(16384);
};

void compareGetAll(std::uint32_t count, std::size_t text, Bars& bars) {
  nv::testkit::Kit kit(std::make_unique<MadeUpStore>());
  const NoRefusals watching;
  Vlans map("");
  for (std::uint32_t id = 1; id <= count; ++id) {
    auto* const vlan = new Vlan;
    vlan->label = "vlan" + std::to_string(id);
    vlan->text = std::string(text, 'x');
    map.add(vlan, nullptr);
  }
  const auto bytes = getAll(map);
  Copies copies(map, bytes);
  Fastest all, byPage, byRecord;
  for (unsigned n = 0; n < 10; ++n) {
    all.take(timeOf([&] { benchmark::DoNotOptimize(getAll(map)); }));
    byPage.take(timeOf([&] { copies.byPage(); }));
    byRecord.take(timeOf([&] { copies.byRecord(); }));
  }
  const auto each = [&](const Fastest& f) { return f.time() * 1e9 / count; };
  std::printf(
      "%u objects, %zu bytes a record: get-all %.1f ns, memcpy of the pages %.1f ns, of "
      "each record %.1f ns\n",
      count, bytes / count, each(all), each(byPage), each(byRecord));
  bars.atLeast("speed of get-all / memcpy, " + std::to_string(count) + " objects of " +
                   std::to_string(bytes / count) + " bytes",
               byPage.time() / all.time(), 0.3);
}

}  // namespace

void getall(Bars& bars) {
  compareGetAll(1000, 60, bars);
  compareGetAll(1000000, 60, bars);
  compareGetAll(100000, 1000, bars);
}

}  // namespace bench
