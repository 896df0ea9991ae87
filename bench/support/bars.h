/// For programs that time turns themselves: the time, and a table of bars at the end.
#pragma once

#include <algorithm>
#include <ctime>
#include <initializer_list>
#include <string>
#include <vector>

namespace bench {

/// Processor time of this process, in seconds.
inline double processorSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

/// The processor time that `work` takes, in seconds.
template <class Work>
double timeOf(Work work) {
  const double start = processorSeconds();
  work();
  return processorSeconds() - start;
}

/// The fastest of several turns, since what else runs on a machine only makes one slower.
class Fastest {
 public:
  void take(double time) { time_ = std::min(time_, time); }
  double time() const { return time_; }

 private:
  double time_ = 1e300;
};

/// What was measured beside what it should be.
class Bars {
 public:
  void atMost(std::string what, double measured, double bar) {
    rows_.push_back({std::move(what), measured, bar, "<=", measured <= bar});
  }
  void atLeast(std::string what, double measured, double bar) {
    rows_.push_back({std::move(what), measured, bar, ">=", measured >= bar});
  }
  /// Prints a Markdown table.
  void print() const;
  bool allHold() const;

 private:
  struct Row {
    std::string what;
    double measured, bar;
    const char* relation;
    bool holds;
  };
  std::vector<Row> rows_;
};

struct Part {
  const char* name;
  void (*run)(Bars&);
};

/// Runs the parts that the command line names, all when it names none, and prints their bars.
/// Returns the status of `main`: 1 when a bar does not hold.
int runParts(int argc, char** argv, std::initializer_list<Part> parts);

}  // namespace bench
