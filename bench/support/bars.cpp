#include "bench/support/bars.h"

#include <cstdio>
#include <string_view>

namespace bench {

void Bars::print() const {
  std::printf("\n| ratio or count | measured | bar | holds |\n|---|---|---|---|\n");
  for (const Row& row : rows_)
    std::printf("| %s | %.2f | %s %.2f | %s |\n", row.what.c_str(), row.measured, row.relation,
                row.bar, row.holds ? "yes" : "NO");
}

bool Bars::allHold() const {
  return std::all_of(rows_.begin(), rows_.end(), [](const Row& row) { return row.holds; });
}

int runParts(int argc, char** argv, std::initializer_list<Part> parts) {
  const std::vector<std::string_view> wanted(argv + 1, argv + argc);
  Bars bars;
  for (const Part& part : parts) {
    if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), part.name) == wanted.end())
      continue;
    std::printf("\n%s\n", part.name);
    std::fflush(stdout);
    part.run(bars);
  }
  bars.print();
  return bars.allHold() ? 0 : 1;
}

}  // namespace bench
