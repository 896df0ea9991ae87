// What one command to an object map costs, at a thousand and at a million objects.
//
// Objects stand under the ids 1 to N; commands name ids in random order and pass through the loop
// as they would when they came from the bus, undo records and change marks included. There is no
// store: its own cost is measured with the store. An iteration is a batch; the time reported is
// that of one command.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
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
constexpr std::size_t kBatch = 500;

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

/// An element that writes nothing, so that a page of a thousand fits.
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

/// A process with a map of N objects, and random ids.
class Service {
 public:
  explicit Service(std::uint32_t objects) : ids_(objects) {
    nv::setObserver(nullptr);
    for (std::uint32_t i = 0; i < objects; ++i) map.add(new Host, false);
    std::iota(ids_.begin(), ids_.end(), 1u);
    std::shuffle(ids_.begin(), ids_.end(), random_);
  }

  /// Sends a batch of commands about different objects and returns the seconds that it took.
  double send(unsigned code, const std::vector<std::uint32_t>& ids) {
    message request{{key::command, code},
                    {key::requester, {0xcfff0001}},
                    {key::rights, 0x7fffffff},
                    {key::objectId, 0},
                    {kTimeToLive, 0}};
    const auto start = std::chrono::steady_clock::now();
    for (const std::uint32_t id : ids) {
      request.insert(key::objectId, id).insert(kTimeToLive, ++timeToLive_);
      nv::getLooper()->deliver(map, request);
    }
    kit_.pass();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  std::vector<std::uint32_t> batch() {
    if (next_ + kBatch > ids_.size()) next_ = 0;
    const auto first = ids_.begin() + static_cast<std::ptrdiff_t>(next_);
    next_ += kBatch;
    return {first, first + kBatch};
  }

 private:
  nv::testkit::Kit kit_;

 public:
  Map<Host> map;

 private:
  std::mt19937 random_{1};
  std::vector<std::uint32_t> ids_;
  std::size_t next_ = 0;
  std::uint32_t timeToLive_ = 0;
};

void report(benchmark::State& state, double seconds) { state.SetIterationTime(seconds / kBatch); }

void amapGet(benchmark::State& state) {
  Service service(static_cast<std::uint32_t>(state.range(0)));
  for (auto _ : state) report(state, service.send(cmd::getObj, service.batch()));
}

void amapSet(benchmark::State& state) {
  Service service(static_cast<std::uint32_t>(state.range(0)));
  for (auto _ : state) report(state, service.send(cmd::setObj, service.batch()));
}

void amapAdd(benchmark::State& state) {
  Service service(static_cast<std::uint32_t>(state.range(0)));
  for (auto _ : state) {
    const auto ids = service.batch();
    service.send(cmd::removeObj, ids);
    report(state, service.send(cmd::addObj, ids));
  }
}

void amapRemove(benchmark::State& state) {
  Service service(static_cast<std::uint32_t>(state.range(0)));
  for (auto _ : state) {
    const auto ids = service.batch();
    report(state, service.send(cmd::removeObj, ids));
    service.send(cmd::addObj, ids);
  }
}

void pageOf1000(benchmark::State& state) {
  nv::testkit::Kit kit;
  nv::setObserver(nullptr);
  Map<Bare> map;
  for (int i = 0; i < 1000; ++i) map.add(new Bare, false);
  for (auto _ : state) benchmark::DoNotOptimize(map.cmdGetAll({}, nv::kNoId, nv::kNoId));
  state.counters["bytes"] = map.cmdGetAll({}, nv::kNoId, nv::kNoId).max_length();
}

/// What a page cannot do without: each object is found and writes itself.
void recordsOf1000(benchmark::State& state) {
  nv::testkit::Kit kit;
  nv::setObserver(nullptr);
  Map<Bare> map;
  for (int i = 0; i < 1000; ++i) map.add(new Bare, false);
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
  b->Arg(1000)->Arg(1000000)->UseManualTime()->Iterations(200)->Repetitions(5);
}

BENCHMARK(amapGet)->Apply(sizes);
BENCHMARK(amapSet)->Apply(sizes);
BENCHMARK(amapAdd)->Apply(sizes);
BENCHMARK(amapRemove)->Apply(sizes);
BENCHMARK(pageOf1000)->Repetitions(5);
BENCHMARK(recordsOf1000)->Repetitions(5);
BENCHMARK(memcpyOfPage)->Repetitions(5);

}  // namespace

BENCHMARK_MAIN();
