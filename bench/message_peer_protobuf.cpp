// The compiled peer: classes generated for exactly these records.
#include <benchmark/benchmark.h>

#include "bench/message_record.h"
#include "bench/support/allocations.h"
#include "message_peer.pb.h"

namespace bench {
namespace {

using benchmark::DoNotOptimize;
using benchmark::State;

#define SET_GROUP(k)                \
  r.set_number##k(g[k].number);     \
  r.set_flag##k(g[k].flag);         \
  r.set_text##k(g[k].text);         \
  r.set_other##k(g[k].other)

void fill(Record12& r, const std::vector<group>& g) {
  SET_GROUP(0);
  SET_GROUP(1);
  SET_GROUP(2);
}

void fill(Record40& r, const std::vector<group>& g) {
  SET_GROUP(0);
  SET_GROUP(1);
  SET_GROUP(2);
  SET_GROUP(3);
  SET_GROUP(4);
  SET_GROUP(5);
  SET_GROUP(6);
  SET_GROUP(7);
  SET_GROUP(8);
  SET_GROUP(9);
}
#undef SET_GROUP

template <class Record>
void build(State& state, int fields) {
  const auto all = groups(fields);
  const allocation_counter counted(state);
  for (auto _ : state) {
    Record r;
    fill(r, all);
    DoNotOptimize(r);
  }
}

template <class Record>
void parse(State& state, int fields) {
  Record whole;
  fill(whole, groups(fields));
  const std::string bytes = whole.SerializeAsString();
  const allocation_counter counted(state);
  for (auto _ : state) {
    Record r;
    DoNotOptimize(r.ParseFromString(bytes));
    DoNotOptimize(r.number2());
    DoNotOptimize(r.flag0());
    DoNotOptimize(std::string_view(r.text1()));
  }
}

#define MERGE_FIELD(name)                                                                  \
  if (source.has_##name() && !(target.has_##name() && target.name() == source.name())) {   \
    if (target.has_##name()) prior.set_##name(target.name());                              \
    target.set_##name(source.name());                                                      \
  }

template <class Record>
void mergeThree(Record& target, const Record& source, Record& prior) {
  MERGE_FIELD(number2)
  MERGE_FIELD(flag0)
  MERGE_FIELD(text1)
}
#undef MERGE_FIELD

template <class Record>
void mergeWithUndo(State& state, int fields) {
  Record target;
  fill(target, groups(fields));
  std::array<Record, 2> updates;
  for (std::size_t k = 0; k < 2; ++k) {
    updates[k].set_number2(kChanges[k].number);
    updates[k].set_flag0(kChanges[k].flag);
    updates[k].set_text1(kChanges[k].text);
  }
  std::size_t turn = 0;
  const allocation_counter counted(state);
  for (auto _ : state) {
    Record undo;
    mergeThree(target, updates[++turn & 1], undo);
    DoNotOptimize(undo);
  }
}

[[maybe_unused]] const bool added = [] {
  add("build by inserts", "protobuf", [](State& state, int fields) {
    fields == 12 ? build<Record12>(state, fields) : build<Record40>(state, fields);
  });
  add("from flat, three reads", "protobuf", [](State& state, int fields) {
    fields == 12 ? parse<Record12>(state, fields) : parse<Record40>(state, fields);
  });
  add("merge three, undo", "protobuf", [](State& state, int fields) {
    fields == 12 ? mergeWithUndo<Record12>(state, fields)
                 : mergeWithUndo<Record40>(state, fields);
  });
  return true;
}();

}  // namespace
}  // namespace bench
