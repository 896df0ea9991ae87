// The index of a container beside a plain map.
#include "platform/id_map.h"

#include <map>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/random.h"

namespace {

using Plain = std::map<std::uint32_t, int*>;

Plain contents(const nv::IdMap<int>& map) {
  Plain all;
  for (const auto [id, object] : map) all.emplace_hint(all.end(), id, object);
  return all;
}

class IdMapBesideAPlainMap : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(IdMapBesideAPlainMap, AgreesOnEveryPosition) {
  Random random;
  SCOPED_TRACE(random.seed());
  // Ids lie this far apart, at both ends of the range: within a page, a page or a book each.
  const auto anyId = [&] {
    const std::uint32_t id = random.below(200) * GetParam();
    return random.below(2) != 0 ? id : ~id;
  };
  std::vector<int> objects(100);
  nv::IdMap<int> map;
  Plain plain;
  for (int step = 0; step < 20000; ++step) {
    const std::uint32_t id = anyId();
    if (random.below(2) != 0) {
      int* const object = &objects[random.below(100)];
      const auto [at, isNew] = map.emplace(id, object);
      const auto [expected, expectedNew] = plain.emplace(id, object);
      ASSERT_EQ(isNew, expectedNew);
      ASSERT_EQ(*at, nv::IdMap<int>::value_type(*expected));
    } else {
      int* const expected = plain.contains(id) ? plain.at(id) : nullptr;
      ASSERT_EQ(map.take(id), expected);
      plain.erase(id);
    }
    const std::uint32_t other = anyId();
    ASSERT_EQ(map.get(other), plain.contains(other) ? plain.at(other) : nullptr);
    const auto next = plain.lower_bound(other);
    const auto at = map.lower_bound(other);
    ASSERT_EQ(at == map.end(), next == plain.end());
    if (next != plain.end()) {
      ASSERT_EQ(at->first, next->first);
    }
    ASSERT_EQ(map.size(), plain.size());
    if (step % 100 == 0) {
      ASSERT_EQ(contents(map), plain);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Distances, IdMapBesideAPlainMap,
                         ::testing::Values(1u, 7u, 31u, 32u, 33u, 1023u, 1024u, 5000000u));

TEST(IdMap, KeepsPositionsOfObjectsThatStay) {
  int object = 0;
  nv::IdMap<int> map;
  for (std::uint32_t id = 0; id < 3000; id += 3) map.emplace(id, &object);
  const auto at = map.find(1500);
  for (std::uint32_t id = 0; id < 3000; id += 3)
    if (id != 1500) map.take(id);
  EXPECT_EQ(at->first, 1500u);
  EXPECT_TRUE(map.begin() == at);
  auto next = at;
  EXPECT_TRUE(++next == map.end());
}

}  // namespace
