/// Runs the registered benchmarks and prints ratios of rows beside their bars, from that one run.
#pragma once

#include <initializer_list>
#include <string>

namespace bench {

/// `row` costs at most `bar` times what `peer` costs. Rows are named as registered.
struct ratio {
  std::string row;
  std::string peer;
  double bar;
};

/// Each row counts with the fastest of its repetitions, which run interleaved: placement and noise
/// alone make half again. Prints a Markdown table, to `main`'s output. Returns `main`'s status: 1
/// when a bar does not hold, 0 otherwise; rows of peers that are not built are left out.
int runWithRatios(int argc, char** argv, const std::initializer_list<ratio>& ratios);

}  // namespace bench
