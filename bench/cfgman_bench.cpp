// A configuration manager: one update, a million items, its store, its subscribers, its clients.
//
// Without arguments all parts run, else those named:
//
//   clients   durable sets of 16 clients against those of one, through a service process
//   task      one update from command to reply, without a store, and what it allocates
//   order     add, set, move and remove at 1,000 and 1,000,000 items
//   unstored  a stored item goes before 20,000 that are not stored
//   loading   a store file becomes items
//   guard     a NotifyGuard over 1,000 subscribers
//
// Turns are interleaved; the fastest of each row counts. Times are processor time but for the
// clients. Files are made in CONFKIT_BENCH_DIR, or the current directory. Ends with status 1 when a
// bar does not hold.
#include "bench/cfgman_bench.h"

int main(int argc, char** argv) {
  return bench::runParts(argc, argv,
                         {{"clients", bench::sixteenClients},
                          {"task", bench::oneTask},
                          {"order", bench::thousandAndMillion},
                          {"unstored", bench::runOfUnstored},
                          {"loading", bench::loading},
                          {"guard", bench::guardedChange}});
}
