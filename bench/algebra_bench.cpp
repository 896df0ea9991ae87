// Merges of single fields by UId, and of an update over eight keys against copies of the message.
#include <algorithm>

#include <benchmark/benchmark.h>

#include "bench/message_record.h"
#include "bench/support/allocations.h"
#include "bench/support/ratios.h"
#include "message/equal.h"
#include "message/merge.h"
#include "platform/keys.h"

namespace bench {
namespace {

using benchmark::DoNotOptimize;
using benchmark::State;

/// Updates that take their turns, so that each finds other values than its own.
constexpr std::uint32_t kTurns = 256;

/// A number of some group, another value each turn.
void mergeChange(State& state, int fields) {
  const auto all = groups(fields);
  nv::message config = record(all);
  std::vector<nv::message> updates;
  std::vector<unsigned> uids;
  for (const change& c : changes(all.size())) {
    updates.push_back({{numberId(c.groups[0]), c.number}});
    uids.push_back(numberId(c.groups[0]).uid());
  }
  std::size_t turn = 0;
  nv::message undo;
  const allocation_counter counted(state);
  for (auto _ : state) {
    undo.clear();
    turn = (turn + 1) % kTurns;
    DoNotOptimize(nv::merge(config, updates[turn], &config, &undo, uids[turn]));
  }
}

/// A key of the state that the update neither holds nor lists.
void mergeUnmentioned(State& state, int fields) {
  const auto all = groups(fields);
  nv::message config = record(all);
  const nv::message update{{nv::key::objectId, 7}, {nv::key::command, 1}, {nv::u32_id(1), 2}};
  random_walk walk(all.size());
  nv::message undo;
  const allocation_counter counted(state);
  for (auto _ : state) {
    DoNotOptimize(nv::merge(config, update, &config, &undo, otherId(walk.next()).uid()));
  }
}

/// A key that two updates add and remove in turn.
void mergeAddAndRemove(State& state, int fields) {
  nv::message config = record(groups(fields));
  const nv::u32_id id(0xfe0033);
  const std::array<nv::message, 2> updates{nv::message{{id, 1}},
                                           nv::message{{nv::key::removals, {id.uid()}}}};
  std::size_t turn = 0;
  nv::message undo;
  const allocation_counter counted(state);
  for (auto _ : state) {
    undo.clear();
    turn ^= 1;
    DoNotOptimize(nv::merge(config, updates[turn], &config, &undo, id.uid()));
  }
}

void compare(State& state, int fields) {
  const auto all = groups(fields);
  const nv::message a = record(all);
  const nv::message b = a;
  random_walk walk(all.size());
  const allocation_counter counted(state);
  for (auto _ : state) DoNotOptimize(nv::isEqual(a, b, textId(walk.next()).uid()));
}

/// The eight keys of two groups, ascending as a manager goes through its own.
std::array<unsigned, 8> eightKeys() {
  std::array uids{flagId(0).uid(),   flagId(1).uid(),  numberId(0).uid(), otherId(0).uid(),
                  numberId(1).uid(), otherId(1).uid(), textId(0).uid(),   textId(1).uid()};
  std::sort(uids.begin(), uids.end());
  return uids;
}

/// A merge over eight keys into a copy of the state, `makeUpdate` making the update of a turn.
template <class MakeUpdate>
void mergeEight(State& state, int fields, MakeUpdate makeUpdate) {
  const nv::message config = record(groups(fields));
  const auto uids = eightKeys();
  std::vector<nv::message> updates;
  for (std::uint32_t n = 1; n <= kTurns; ++n) updates.push_back(makeUpdate(n));
  std::size_t turn = 0;
  const allocation_counter counted(state);
  for (auto _ : state) {
    nv::message target = config;
    nv::message undo;
    const nv::message& update = updates[turn = (turn + 1) % kTurns];
    for (const unsigned uid : uids) {
      DoNotOptimize(nv::merge(target, update, &target, &undo, uid));
    }
    DoNotOptimize(undo);
  }
}

/// Every key changes, but for the flags that happen to be equal.
void changeEight(State& state, int fields) {
  mergeEight(state, fields, [](std::uint32_t n) {
    const std::string text(13 + n % 19, 'x');
    return nv::message{{numberId(0), n + 5000},    {flagId(0), n % 2 == 0}, {textId(0), text},
                       {otherId(0), n + 5000},     {numberId(1), n + 5000}, {flagId(1), n % 3 == 0},
                       {textId(1), text + "more"}, {otherId(1), n + 5000}};
  });
}

/// What a client mostly sends: one key of the eight, beside the id and the envelope.
void changeOneOfEight(State& state, int fields) {
  mergeEight(state, fields, [](std::uint32_t n) {
    return nv::message{{nv::key::objectId, n},
                       {nv::key::command, 0xfe0003},
                       {nv::key::requester, {100, n}},
                       {n % 2 == 0 ? numberId(1) : otherId(0), n + 5000}};
  });
}

void threeCopies(State& state, int fields) {
  const nv::message m = record(groups(fields));
  const allocation_counter counted(state);
  for (auto _ : state) {
    for (int k = 0; k < 3; ++k) {
      nv::message same = m;
      DoNotOptimize(same);
    }
  }
}

[[maybe_unused]] const bool added = [] {
  add("merge", "changed", mergeChange);
  add("merge", "unmentioned", mergeUnmentioned);
  add("merge", "added or removed", mergeAddAndRemove);
  add("isEqual", "text", compare);
  add("merge eight", "all", changeEight);
  add("merge eight", "one", changeOneOfEight);
  add("copy", "three", threeCopies);
  return true;
}();

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  return bench::runWithRatios(argc, argv,
                              {
                                  {"merge changed 12", "copy three 12", 2.5},
                                  {"merge changed 40", "copy three 40", 1.0},
                                  {"merge unmentioned 12", "copy three 12", 1.0},
                                  {"merge unmentioned 40", "copy three 40", 1.0},
                                  {"merge added or removed 12", "copy three 12", 2.5},
                                  {"merge added or removed 40", "copy three 40", 1.0},
                                  {"isEqual text 12", "copy three 12", 2.5},
                                  {"isEqual text 40", "copy three 40", 1.0},
                                  {"merge eight all 12", "copy three 12", 20.0},
                                  {"merge eight all 40", "copy three 40", 6.0},
                                  {"merge eight one 12", "copy three 12", 9.0},
                                  {"merge eight one 40", "copy three 40", 2.5},
                              });
}
