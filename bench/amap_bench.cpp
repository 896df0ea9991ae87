// What one command to an object map costs, at a thousand and at a million objects.
//
// Objects stand under the ids 1 to N; commands name ids in random order. They are handed to the map
// by the loop (call) or come as frames of a client and are answered with frames, without sockets
// (frame). Either way undo records and change marks are included. There is no store: its own cost
// is measured with the store. An iteration is a batch; the time is the processor time of one
// command.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "containers/amap.h"
#include "platform/commands.h"
#include "platform/observer.h"
#include "testing/kit.h"

namespace {

namespace cmd = nv::cmd;
namespace key = nv::key;
using nv::message;

constexpr nv::string_id kAddress{0x11};
constexpr nv::u32_id kTimeToLive{0x12};
constexpr std::size_t kBatch = 200;
constexpr int kPageOf = 800;

struct Host : Object {
  std::string address = "192.168.100.200";
  std::uint32_t timeToLive = 0;

  void getConfig(message& out, std::uint32_t) override {
    out.insert(kTimeToLive, timeToLive).insert(kAddress, address);
  }
  void setConfig(const message& in, std::uint32_t) override {
    if (in.has(kAddress)) address = in.view(kAddress);
    timeToLive = in.get(kTimeToLive, timeToLive);
  }
};

/// An element that writes nothing, so that many fit into a page.
struct Bare : Object {};

template <class T>
class Map : public AMap {
 public:
  Map() : AMap("", 1, 0xfffffff0) {}
  Object* newObject() override { return new T; }
  void copyObject(Object* dst, Object* src) override {
    static_cast<T&>(*dst) = static_cast<const T&>(*src);
  }
  message checkRestore(Object*) override { return {}; }
  message checkAdd(Object*) override { return {}; }
  message checkChange(Object*, Object*) override { return {}; }
  message checkRemove(Object*) override { return {}; }
  void objAdded(Object*) override {}
  void objChanged(Object*, Object*) override {}
  void objRemoved(Object*) override {}
};

double processorSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

enum class Way { call, frame };

/// A process with a map of N objects, its client, and random ids.
class Service {
 public:
  Service(std::uint32_t objects, Way way) : way_(way), ids_(objects) {
    nv::setObserver(nullptr);
    kit_.listen(kAddress);
    nv::getLooper()->addHandler(kAddress, &map_);
    client_ = kit_.connect();
    for (std::uint32_t i = 0; i < objects; ++i) map_.add(new Host, false);
    std::iota(ids_.begin(), ids_.end(), 1u);
    std::shuffle(ids_.begin(), ids_.end(), random_);
  }

  /// Sends a batch of commands about different objects and returns the seconds that each took.
  double send(unsigned code, const std::vector<std::uint32_t>& ids) {
    message request{{key::command, code}, {key::route, {kAddress}}};
    if (way_ == Way::call) request.insert(key::requester, {0xcfff0001});
    const double start = processorSeconds();
    for (const std::uint32_t id : ids) {
      request.insert(key::objectId, id).insert(kTimeToLive, ++timeToLive_);
      if (way_ == Way::call) {
        nv::getLooper()->deliver(map_, request);
      } else {
        client_->send(request.insert(key::tag, timeToLive_));
      }
    }
    kit_.settle();
    const double seconds = processorSeconds() - start;
    check(ids.size());
    return seconds / kBatch;
  }
  std::vector<std::uint32_t> batch() {
    if (next_ + kBatch > ids_.size()) next_ = 0;
    const auto first = ids_.begin() + static_cast<std::ptrdiff_t>(next_);
    next_ += kBatch;
    return {first, first + kBatch};
  }

 private:
  static constexpr std::uint32_t kAddress = 100;

  void check(std::size_t expected) {
    if (way_ == Way::call) return;
    const auto replies = client_->received();
    const bool allDone =
        std::ranges::none_of(replies, [](const message& m) { return nv::isError(m); });
    if (replies.size() != expected || !allDone) std::abort();
  }

  Way way_;
  nv::testkit::Kit kit_;
  Map<Host> map_;
  std::unique_ptr<nv::testkit::BusPeer> client_;
  std::mt19937 random_{1};
  std::vector<std::uint32_t> ids_;
  std::size_t next_ = 0;
  std::uint32_t timeToLive_ = 0;
};

Service serviceFor(const benchmark::State& state) {
  return Service(static_cast<std::uint32_t>(state.range(0)), static_cast<Way>(state.range(1)));
}

void amapGet(benchmark::State& state) {
  Service service = serviceFor(state);
  for (auto _ : state) state.SetIterationTime(service.send(cmd::getObj, service.batch()));
}

void amapSet(benchmark::State& state) {
  Service service = serviceFor(state);
  for (auto _ : state) state.SetIterationTime(service.send(cmd::setObj, service.batch()));
}

void amapAdd(benchmark::State& state) {
  Service service = serviceFor(state);
  for (auto _ : state) {
    const auto ids = service.batch();
    service.send(cmd::removeObj, ids);
    state.SetIterationTime(service.send(cmd::addObj, ids));
  }
}

void amapRemove(benchmark::State& state) {
  Service service = serviceFor(state);
  for (auto _ : state) {
    const auto ids = service.batch();
    state.SetIterationTime(service.send(cmd::removeObj, ids));
    service.send(cmd::addObj, ids);
  }
}

void fullPage(benchmark::State& state) {
  nv::testkit::Kit kit;
  nv::setObserver(nullptr);
  Map<Bare> map;
  for (int i = 0; i < kPageOf; ++i) map.add(new Bare, false);
  for (auto _ : state) benchmark::DoNotOptimize(map.cmdGetAll({}, nv::kNoId, nv::kNoId));
  state.counters["bytes"] = map.cmdGetAll({}, nv::kNoId, nv::kNoId).max_length();
}

/// What a page cannot do without: each object is found and writes itself.
void recordsOfPage(benchmark::State& state) {
  nv::testkit::Kit kit;
  nv::setObserver(nullptr);
  Map<Bare> map;
  for (int i = 0; i < kPageOf; ++i) map.add(new Bare, false);
  for (auto _ : state) {
    for (Object* obj : map) {
      message record{{key::objectId, obj->id}};
      obj->getConfig(record, 5);
      benchmark::DoNotOptimize(record);
    }
  }
}

void memcpyOfPage(benchmark::State& state) {
  std::vector<unsigned char> from(20024), to(20024);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
}

void sizes(benchmark::internal::Benchmark* b) {
  b->ArgNames({"objects", "frame"})->ArgsProduct({{1000, 1000000}, {0, 1}});
  b->UseManualTime()->Iterations(500)->Repetitions(5)->ReportAggregatesOnly();
}

BENCHMARK(amapGet)->Apply(sizes);
BENCHMARK(amapSet)->Apply(sizes);
BENCHMARK(amapAdd)->Apply(sizes);
BENCHMARK(amapRemove)->Apply(sizes);
BENCHMARK(fullPage)->Repetitions(5);
BENCHMARK(recordsOfPage)->Repetitions(5);
BENCHMARK(memcpyOfPage)->Repetitions(5);

}  // namespace

BENCHMARK_MAIN();
