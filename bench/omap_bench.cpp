// An ordered object map: a million objects, batches, restoring, get-all.
//
// Without arguments all parts run, else those named:
//
//   order   add, set, move and remove in a map of 1,000 and of 1,000,000 storable objects
//   batch   10,000 and 100,000 changes that are put off, and their flush; every tenth object is not
//           storable
//   init    a store file becomes objects
//   getall  all objects, page by page
//
// Turns are interleaved; the fastest of each row counts. Times are processor time. Files are made
// in CONFKIT_BENCH_DIR, or the current directory. Ends with status 1 when a bar does not hold.
#include "bench/omap_bench.h"

int main(int argc, char** argv) {
  return bench::runParts(argc, argv,
                         {{"order", bench::order},
                          {"batch", bench::batch},
                          {"init", bench::init},
                          {"getall", bench::getall}});
}
