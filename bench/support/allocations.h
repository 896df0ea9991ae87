/// Heap allocations of the calling thread, counted by the operator new of this program.
#pragma once

#include <cstdint>

#include <benchmark/benchmark.h>

namespace bench {

std::uint64_t allocations();

/// Writes the allocations an iteration made into the row "allocs" of `state`, when destroyed after
/// the loop.
class allocation_counter {
 public:
  explicit allocation_counter(benchmark::State& state) : state_(state), before_(allocations()) {}
  ~allocation_counter() {
    state_.counters["allocs"] = benchmark::Counter(static_cast<double>(allocations() - before_),
                                                   benchmark::Counter::kAvgIterations);
  }
  allocation_counter(const allocation_counter&) = delete;
  allocation_counter& operator=(const allocation_counter&) = delete;

 private:
  benchmark::State& state_;
  std::uint64_t before_;
};

}  // namespace bench
