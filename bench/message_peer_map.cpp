// The peer that everybody could write: a std::map of variants.
#include <benchmark/benchmark.h>

#include <map>
#include <variant>

#include "bench/message_record.h"
#include "bench/support/allocations.h"

namespace bench {
namespace {

using benchmark::DoNotOptimize;
using benchmark::State;
using value = std::variant<bool, std::uint32_t, std::uint64_t, std::string>;
using map = std::map<std::uint32_t, value>;

map recordMap(const std::vector<group>& all) {
  map m;
  for (std::size_t k = 0; k < all.size(); ++k) {
    m[numberId(k).uid()] = all[k].number;
    m[flagId(k).uid()] = all[k].flag;
    m[textId(k).uid()] = all[k].text;
    m[otherId(k).uid()] = all[k].other;
  }
  return m;
}

void buildByInserts(State& state, int fields) {
  const auto all = groups(fields);
  const allocation_counter counted(state);
  for (auto _ : state) {
    map m = recordMap(all);
    DoNotOptimize(m);
  }
}

void readNumber(State& state, int fields) {
  const auto all = groups(fields);
  const map m = recordMap(all);
  random_walk walk(all.size());
  for (auto _ : state) {
    const auto at = m.find(numberId(walk.next()).uid());
    DoNotOptimize(at == m.end() ? 0 : std::get<std::uint32_t>(at->second));
  }
}

void viewText(State& state, int fields) {
  const auto all = groups(fields);
  const map m = recordMap(all);
  random_walk walk(all.size());
  for (auto _ : state) {
    const auto at = m.find(textId(walk.next()).uid());
    DoNotOptimize(at == m.end() ? std::string_view{} : std::get<std::string>(at->second));
  }
}

void setNumber(State& state, int fields) {
  const auto all = groups(fields);
  map m = recordMap(all);
  random_walk walk(all.size());
  std::uint32_t n = 0;
  for (auto _ : state) {
    m[numberId(walk.next()).uid()] = ++n;
    DoNotOptimize(m);
  }
}

void setText(State& state, int fields) {
  map m = recordMap(groups(fields));
  std::size_t turn = 0;
  for (auto _ : state) {
    m[textId(0).uid()] = kChanges[++turn & 1].text;
    DoNotOptimize(m);
  }
}

void mergeInto(map& target, const map& source, map& prior) {
  for (const auto& [uid, changed] : source) {
    const auto [at, added] = target.try_emplace(uid, changed);
    if (added || at->second == changed) continue;
    prior[uid] = std::move(at->second);
    at->second = changed;
  }
}

void mergeWithUndo(State& state, int fields) {
  map target = recordMap(groups(fields));
  std::array<map, 2> updates;
  for (std::size_t k = 0; k < 2; ++k) {
    updates[k][numberId(2).uid()] = kChanges[k].number;
    updates[k][flagId(0).uid()] = kChanges[k].flag;
    updates[k][textId(1).uid()] = kChanges[k].text;
  }
  std::size_t turn = 0;
  const allocation_counter counted(state);
  for (auto _ : state) {
    map undo;
    mergeInto(target, updates[++turn & 1], undo);
    DoNotOptimize(undo);
  }
}

[[maybe_unused]] const bool added = [] {
  add("build by inserts", "map", buildByInserts);
  add("read a u32", "map", readNumber);
  add("view a string", "map", viewText);
  add("set a u32", "map", setNumber);
  add("set a string", "map", setText);
  add("merge three, undo", "map", mergeWithUndo);
  return true;
}();

}  // namespace
}  // namespace bench
