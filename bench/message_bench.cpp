// The message against its peers, operation by operation. The table of bars stands at the end.
#include <benchmark/benchmark.h>

#include "bench/message_record.h"
#include "bench/support/allocations.h"
#include "bench/support/ratios.h"

namespace bench {
namespace {

using benchmark::DoNotOptimize;
using benchmark::State;

void buildByInserts(State& state, int fields) {
  const auto all = groups(fields);
  const allocation_counter counted(state);
  for (auto _ : state) {
    nv::message m = record(all);
    DoNotOptimize(m);
  }
}

nv::message fromList12(const std::vector<group>& g) {
  return {{numberId(0), g[0].number}, {flagId(0), g[0].flag},     {textId(0), g[0].text},
          {otherId(0), g[0].other},   {numberId(1), g[1].number}, {flagId(1), g[1].flag},
          {textId(1), g[1].text},     {otherId(1), g[1].other},   {numberId(2), g[2].number},
          {flagId(2), g[2].flag},     {textId(2), g[2].text},     {otherId(2), g[2].other}};
}

#define GROUP(k)                                                                \
  {numberId(k), g[k].number}, {flagId(k), g[k].flag}, {textId(k), g[k].text}, { \
    otherId(k), g[k].other                                                      \
  }
nv::message fromList40(const std::vector<group>& g) {
  return {GROUP(0), GROUP(1), GROUP(2), GROUP(3), GROUP(4),
          GROUP(5), GROUP(6), GROUP(7), GROUP(8), GROUP(9)};
}
#undef GROUP

void buildFromList(State& state, int fields) {
  const auto all = groups(fields);
  const allocation_counter counted(state);
  for (auto _ : state) {
    nv::message m = fields == 12 ? fromList12(all) : fromList40(all);
    DoNotOptimize(m);
  }
}

void readNumber(State& state, int fields) {
  const auto all = groups(fields);
  const nv::message m = record(all);
  random_walk walk(all.size());
  const allocation_counter counted(state);
  for (auto _ : state) DoNotOptimize(m.get(numberId(walk.next())));
}

void viewText(State& state, int fields) {
  const auto all = groups(fields);
  const nv::message m = record(all);
  random_walk walk(all.size());
  const allocation_counter counted(state);
  for (auto _ : state) DoNotOptimize(m.view(textId(walk.next())));
}

void setNumber(State& state, int fields) {
  const auto all = groups(fields);
  nv::message m = record(all);
  random_walk walk(all.size());
  std::uint32_t n = 0;
  const allocation_counter counted(state);
  for (auto _ : state) {
    m.insert(numberId(walk.next()), ++n);
    DoNotOptimize(m);
  }
}

void setText(State& state, int fields) {
  const auto all = groups(fields);
  nv::message m = record(all);
  const auto made = changes(all.size());
  m.insert(textId(all.size() - 1), std::string(all.size() * 18, 'x'));  // the room it will need
  random_walk walk(all.size());
  const allocation_counter counted(state);
  std::size_t turn = 0;
  for (auto _ : state) {
    m.insert(textId(walk.next()), made[++turn & 255].text);
    DoNotOptimize(m);
  }
}

void copy(State& state, int fields) {
  const nv::message m = record(groups(fields));
  const allocation_counter counted(state);
  for (auto _ : state) {
    nv::message same = m;
    DoNotOptimize(same);
  }
}

void equality(State& state, int fields) {
  const nv::message a = record(groups(fields));
  const nv::message b = a;
  const allocation_counter counted(state);
  for (auto _ : state) DoNotOptimize(a == b);
}

void flatten(State& state, int fields) {
  const nv::message m = record(groups(fields));
  std::vector<unsigned char> out(1024);
  const allocation_counter counted(state);
  for (auto _ : state) {
    m.flatten(out);
    DoNotOptimize(out.data());
  }
}

void parse(State& state, int fields) {
  const auto all = groups(fields);
  const nv::flat_message flat = record(all).flat();
  random_walk walk(all.size());
  const allocation_counter counted(state);
  for (auto _ : state) {
    const nv::message m(flat);
    DoNotOptimize(m.get(numberId(walk.next())));
    DoNotOptimize(m.get(flagId(walk.next())));
    DoNotOptimize(m.view(textId(walk.next())));
  }
}

void mergeWithUndo(State& state, int fields) {
  const auto all = groups(fields);
  nv::message target = record(all);
  std::vector<nv::message> updates;
  for (const change& c : changes(all.size())) {
    updates.push_back({{numberId(c.groups[0]), c.number},
                       {otherId(c.groups[1]), c.number},
                       {textId(c.groups[2]), c.text}});
    target.merge(updates.back());
  }
  std::size_t turn = 0;
  const allocation_counter counted(state);
  for (auto _ : state) {
    nv::message undo;
    merge(target, updates[++turn & 255], undo);
    DoNotOptimize(undo);
  }
}

void page(State& state, int fields) {
  const std::vector<nv::message> records(kPage, record(groups(fields)));
  const nv::message_array_id id(1);
  const allocation_counter counted(state);
  for (auto _ : state) {
    nv::message m;
    m.insert(id, records);
    DoNotOptimize(m);
  }
}

[[maybe_unused]] const bool added = [] {
  add("build by inserts", "message", buildByInserts);
  add("build from a list", "message", buildFromList);
  add("read a u32", "message", readNumber);
  add("view a string", "message", viewText);
  add("set a u32", "message", setNumber);
  add("set a string", "message", setText);
  add("copy", "message", copy);
  add("equality", "message", equality);
  add("to flat", "message", flatten);
  add("from flat, three reads", "message", parse);
  add("merge three, undo", "message", mergeWithUndo);
  add("page of 1000", "message", page);
  return true;
}();

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  return bench::runWithRatios(
      argc, argv,
      {
          {"build by inserts message 12", "build by inserts map 12", 0.45},
          {"build by inserts message 40", "build by inserts map 40", 0.65},
          {"build by inserts message 12", "build by inserts protobuf 12", 1.3},
          {"build by inserts message 40", "build by inserts protobuf 40", 2.3},
          {"build from a list message 12", "build by inserts protobuf 12", 0.9},
          {"build from a list message 40", "build by inserts protobuf 40", 1.3},
          {"read a u32 message 12", "read a u32 map 12", 0.65},
          {"read a u32 message 40", "read a u32 map 40", 0.65},
          {"read a u32 message 12", "read a u32 flexbuffers 12", 0.25},
          {"read a u32 message 40", "read a u32 flexbuffers 40", 0.25},
          {"view a string message 12", "view a string map 12", 1.0},
          {"view a string message 40", "view a string map 40", 1.0},
          {"view a string message 12", "view a string flexbuffers 12", 0.25},
          {"view a string message 40", "view a string flexbuffers 40", 0.25},
          {"set a u32 message 12", "set a u32 map 12", 0.7},
          {"set a u32 message 40", "set a u32 map 40", 0.7},
          {"set a string message 12", "set a string map 12", 2.0},
          {"set a string message 40", "set a string map 40", 2.0},
          {"copy message 12", "copy memcpy 12", 1.6},
          {"copy message 40", "copy memcpy 40", 3.5},
          {"equality message 12", "equality memcmp 12", 1.5},
          {"equality message 40", "equality memcmp 40", 1.5},
          {"to flat message 12", "to flat append 12", 1.7},
          {"to flat message 40", "to flat append 40", 1.7},
          {"from flat, three reads message 12", "from flat, three reads protobuf 12", 0.35},
          {"from flat, three reads message 40", "from flat, three reads protobuf 40", 0.35},
          {"from flat, three reads message 12", "from flat, three reads flexbuffers 12", 0.3},
          {"from flat, three reads message 40", "from flat, three reads flexbuffers 40", 0.3},
          {"merge three, undo message 12", "merge three, undo map 12", 0.65},
          {"merge three, undo message 40", "merge three, undo map 40", 0.65},
          {"merge three, undo message 12", "merge three, undo protobuf 12", 1.2},
          {"merge three, undo message 40", "merge three, undo protobuf 40", 1.2},
          {"page of 1000 message 12", "page of 1000 memcpy 12", 1.5},
          {"page of 1000 message 40", "page of 1000 memcpy 40", 1.5},
      });
}
