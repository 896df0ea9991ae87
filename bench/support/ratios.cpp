#include "bench/support/ratios.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include <benchmark/benchmark.h>

namespace bench {
namespace {

struct cost {
  double nanoseconds = 1e300;
  double allocations = 0;
};

/// Keeps the fastest repetition of each row.
class fastest : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      cost& row = costs_[run.run_name.function_name];
      row.nanoseconds = std::min(row.nanoseconds, run.GetAdjustedCPUTime());
      const auto allocs = run.counters.find("allocs");
      if (allocs != run.counters.end()) row.allocations = allocs->second;
    }
  }
  const cost* find(const std::string& row) const {
    const auto at = costs_.find(row);
    return at == costs_.end() ? nullptr : &at->second;
  }

 private:
  std::map<std::string, cost> costs_;
};

/// Prints one line of the table. Returns whether its bar holds.
bool print(const ratio& wanted, const cost& own, const cost& peer) {
  const double is = own.nanoseconds / peer.nanoseconds;
  const bool holds = is <= wanted.bar;
  std::printf("| %s | %.1f | %.2f | %s | %.1f | %.2f | %.2f | %s |\n", wanted.row.c_str(),
              own.nanoseconds, own.allocations, wanted.peer.c_str(), peer.nanoseconds, is,
              wanted.bar, holds ? "yes" : "NO");
  return holds;
}

}  // namespace

int runWithRatios(int argc, char** argv, const std::initializer_list<ratio>& ratios) {
  std::string interleaving = "--benchmark_enable_random_interleaving=true";
  std::string repetitions = "--benchmark_repetitions=15";
  std::string time = "--benchmark_min_time=0.01";
  std::vector<char*> arguments{argv[0], interleaving.data(), repetitions.data(), time.data()};
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  fastest rows;
  benchmark::RunSpecifiedBenchmarks(&rows);

  std::puts("Compiler: " __VERSION__ ". Times are the fastest of the repetitions.\n");
  std::puts("| row | ns | allocations | against | ns | ratio | at most | holds |");
  std::puts("|---|---|---|---|---|---|---|---|");
  bool allHold = true;
  for (const ratio& wanted : ratios) {
    const cost* own = rows.find(wanted.row);
    const cost* peer = rows.find(wanted.peer);
    if (own != nullptr && peer != nullptr) allHold &= print(wanted, *own, *peer);
  }
  return allHold ? 0 : 1;
}

}  // namespace bench
