// The compiled peer: classes generated for exactly these records.
#include <benchmark/benchmark.h>

#include "bench/message_record.h"
#include "bench/support/allocations.h"
#include "message_peer.pb.h"

namespace bench {
namespace {

using benchmark::DoNotOptimize;
using benchmark::State;

#define SET_GROUP(k)            \
  r.set_number##k(g[k].number); \
  r.set_flag##k(g[k].flag);     \
  r.set_text##k(g[k].text);     \
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

#define MERGE_FIELD(name)                                                                \
  if (source.has_##name() && !(target.has_##name() && target.name() == source.name())) { \
    if (target.has_##name()) prior.set_##name(target.name());                            \
    target.set_##name(source.name());                                                    \
  }

#define MERGE_GROUP(k) \
  MERGE_FIELD(number##k) MERGE_FIELD(other##k) MERGE_FIELD(flag##k) MERGE_FIELD(text##k)

void mergeAll(Record12& target, const Record12& source, Record12& prior) {
  MERGE_GROUP(0)
  MERGE_GROUP(1)
  MERGE_GROUP(2)
}

void mergeAll(Record40& target, const Record40& source, Record40& prior) {
  MERGE_GROUP(0)
  MERGE_GROUP(1)
  MERGE_GROUP(2)
  MERGE_GROUP(3)
  MERGE_GROUP(4)
  MERGE_GROUP(5)
  MERGE_GROUP(6)
  MERGE_GROUP(7)
  MERGE_GROUP(8)
  MERGE_GROUP(9)
}
#undef MERGE_GROUP
#undef MERGE_FIELD

/// The change as a record; its fields are found by name, which is not measured.
template <class Record>
Record update(const change& c) {
  Record r;
  const auto* type = Record::descriptor();
  const auto* set = Record::GetReflection();
  const auto field = [&](const char* name, std::size_t k) {
    return type->FindFieldByName(name + std::to_string(k));
  };
  set->SetUInt32(&r, field("number", c.groups[0]), c.number);
  set->SetUInt32(&r, field("other", c.groups[1]), c.number);
  set->SetString(&r, field("text", c.groups[2]), c.text);
  return r;
}

template <class Record>
void mergeWithUndo(State& state, int fields) {
  const auto all = groups(fields);
  Record target;
  fill(target, all);
  std::vector<Record> updates;
  for (const change& c : changes(all.size())) updates.push_back(update<Record>(c));
  std::size_t turn = 0;
  const allocation_counter counted(state);
  for (auto _ : state) {
    Record undo;
    mergeAll(target, updates[++turn & 255], undo);
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
    fields == 12 ? mergeWithUndo<Record12>(state, fields) : mergeWithUndo<Record40>(state, fields);
  });
  return true;
}();

}  // namespace
}  // namespace bench
