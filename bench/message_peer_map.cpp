// The peer that everybody could write: a std::map of variants.
#include <map>
#include <variant>

#include <benchmark/benchmark.h>

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
  const auto all = groups(fields);
  map m = recordMap(all);
  const auto made = changes(all.size());
  random_walk walk(all.size());
  std::size_t turn = 0;
  for (auto _ : state) {
    m[textId(walk.next()).uid()] = made[++turn & 255].text;
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
  const auto all = groups(fields);
  map target = recordMap(all);
  std::vector<map> updates;
  for (const change& c : changes(all.size())) {
    updates.push_back({{numberId(c.groups[0]).uid(), c.number},
                       {otherId(c.groups[1]).uid(), c.number},
                       {textId(c.groups[2]).uid(), c.text}});
  }
  std::size_t turn = 0;
  const allocation_counter counted(state);
  for (auto _ : state) {
    map undo;
    mergeInto(target, updates[++turn & 255], undo);
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
