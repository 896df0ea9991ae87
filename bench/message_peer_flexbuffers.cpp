// The schema-less peer that also reads in place: a FlexBuffers map.
#include <benchmark/benchmark.h>
#include <flatbuffers/flexbuffers.h>

#include "bench/message_record.h"

namespace bench {
namespace {

using benchmark::DoNotOptimize;
using benchmark::State;
using bytes = std::vector<unsigned char>;

/// Keys of a FlexBuffers map are texts: the type and the group.
std::vector<std::string> keys(const char* type, std::size_t count) {
  std::vector<std::string> made;
  for (std::size_t k = 0; k < count; ++k) made.push_back(type + std::to_string(k));
  return made;
}

bytes recordBytes(const std::vector<group>& all) {
  flexbuffers::Builder builder;
  builder.Map([&] {
    for (std::size_t k = 0; k < all.size(); ++k) {
      const std::string group = std::to_string(k);
      builder.UInt(("n" + group).c_str(), all[k].number);
      builder.Bool(("f" + group).c_str(), all[k].flag);
      builder.String(("t" + group).c_str(), all[k].text);
      builder.UInt(("o" + group).c_str(), all[k].other);
    }
  });
  builder.Finish();
  return builder.GetBuffer();
}

void readNumber(State& state, int fields) {
  const auto all = groups(fields);
  const bytes flat = recordBytes(all);
  const auto names = keys("n", all.size());
  const auto map = flexbuffers::GetRoot(flat).AsMap();
  random_walk walk(all.size());
  for (auto _ : state) DoNotOptimize(map[names[walk.next()].c_str()].AsUInt32());
}

void viewText(State& state, int fields) {
  const auto all = groups(fields);
  const bytes flat = recordBytes(all);
  const auto names = keys("t", all.size());
  const auto map = flexbuffers::GetRoot(flat).AsMap();
  random_walk walk(all.size());
  for (auto _ : state) {
    const auto text = map[names[walk.next()].c_str()].AsString();
    DoNotOptimize(std::string_view(text.c_str(), text.length()));
  }
}

void parse(State& state, int fields) {
  const auto all = groups(fields);
  const bytes flat = recordBytes(all);
  const auto numbers = keys("n", all.size());
  const auto flags = keys("f", all.size());
  const auto texts = keys("t", all.size());
  random_walk walk(all.size());
  for (auto _ : state) {
    DoNotOptimize(flexbuffers::VerifyBuffer(flat.data(), flat.size(), nullptr));
    const auto map = flexbuffers::GetRoot(flat).AsMap();
    DoNotOptimize(map[numbers[walk.next()].c_str()].AsUInt32());
    DoNotOptimize(map[flags[walk.next()].c_str()].AsBool());
    DoNotOptimize(map[texts[walk.next()].c_str()].AsString().c_str());
  }
}

[[maybe_unused]] const bool added = [] {
  add("read a u32", "flexbuffers", readNumber);
  add("view a string", "flexbuffers", viewText);
  add("from flat, three reads", "flexbuffers", parse);
  return true;
}();

}  // namespace
}  // namespace bench
