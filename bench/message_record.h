/// The record that all message benchmarks work on: groups of two u32, a flag and a string.
#pragma once

#include <array>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/message.h"

namespace bench {

struct group {
  std::uint32_t number;
  std::uint32_t other;
  bool flag;
  std::string text;
};

/// Records of 12 and of 40 fields.
inline constexpr std::array<int, 2> kFieldCounts{12, 40};

/// `fields` / 4 groups; texts of 13 to 31 bytes, beyond what a std::string holds inside for most.
inline std::vector<group> groups(int fields) {
  std::vector<group> made;
  for (int k = 0; k < fields / 4; ++k) {
    const auto n = static_cast<std::uint32_t>(k);
    made.push_back(
        {1000 * n, n, n % 2 == 0, std::string(13 + 9 * n % 19, static_cast<char>('a' + k))});
  }
  return made;
}

// The ids of group `k`: scattered, as the ids of real services are.
inline constexpr std::array<std::uint32_t, 10> kIds{0xfe0001, 0xfe005c, 0xfe0035, 0xfe000e,
                                                    0xfe0069, 0xfe0042, 0xfe001b, 0xfe0076,
                                                    0xfe004f, 0xfe0028};
inline std::uint32_t idOf(std::size_t k) { return kIds[k]; }
inline nv::u32_id numberId(std::size_t k) { return nv::u32_id(idOf(k)); }
inline nv::bool_id flagId(std::size_t k) { return nv::bool_id(idOf(k) + 1); }
inline nv::string_id textId(std::size_t k) { return nv::string_id(idOf(k) + 2); }
inline nv::u32_id otherId(std::size_t k) { return nv::u32_id(idOf(k) + 3); }

inline nv::message record(const std::vector<group>& all) {
  nv::message m;
  for (std::size_t k = 0; k < all.size(); ++k) {
    m.insert(numberId(k), all[k].number);
    m.insert(flagId(k), all[k].flag);
    m.insert(textId(k), all[k].text);
    m.insert(otherId(k), all[k].other);
  }
  return m;
}

/// Numbers of groups in random order, long enough that no branch predictor learns it by heart.
class random_walk {
 public:
  explicit random_walk(std::size_t count) : order_(kLength) {
    std::mt19937 random(1);
    for (unsigned char& k : order_) k = static_cast<unsigned char>(random() % count);
  }
  unsigned next() { return order_[at_++ % kLength]; }

 private:
  static constexpr std::size_t kLength = 1 << 20;

  std::vector<unsigned char> order_;
  std::size_t at_ = 0;
};

/// What a change of three fields sets: both numbers and the text, each of some group.
struct change {
  std::array<std::size_t, 3> groups;
  std::uint32_t number;
  std::string text;
};

/// Many changes, one to be applied after the other; all three fields differ from what stands there.
inline std::vector<change> changes(std::size_t count) {
  std::vector<change> made;
  std::mt19937 random(2);
  for (std::uint32_t n = 0; n < 256; ++n) {
    made.push_back({{random() % count, random() % count, random() % count},
                    1000000 + n,
                    std::string(13 + random() % 19, static_cast<char>(n))});
  }
  return made;
}

/// Records on a page.
inline constexpr std::size_t kPage = 1000;

/// Registers `row` as "operation peer fields" for both record sizes.
template <class Row>
void add(const char* operation, const char* peer, Row row) {
  for (const int fields : kFieldCounts) {
    const auto name = std::string(operation) + " " + peer + " " + std::to_string(fields);
    benchmark::RegisterBenchmark(name.c_str(),
                                 [row, fields](benchmark::State& state) { row(state, fields); });
  }
}

}  // namespace bench
