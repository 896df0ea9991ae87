#include "platform/allocator.h"

#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/random.h"

namespace {

using nv::Allocator;
using Ids = std::vector<std::uint32_t>;

constexpr std::uint32_t kNone = 0xffffffff;

Ids walk(const Allocator& ids) {
  Ids all;
  for (const std::uint32_t id : ids) all.push_back(id);
  return all;
}

// Small ranges, so that runs of ids meet, part and fill them up.
class AllocatorFrom : public ::testing::TestWithParam<std::uint32_t> {};

INSTANTIATE_TEST_SUITE_P(Places, AllocatorFrom, ::testing::Values(10u, 0xffffffe0u));

TEST_P(AllocatorFrom, DoesWhatASetOfIdsDoes) {
  Random random;
  SCOPED_TRACE(random.seed());
  const std::uint32_t min = GetParam(), max = min + 31;
  Allocator ids(min, max);
  std::set<std::uint32_t> model;
  for (int step = 0; step < 20000; ++step) {
    const std::uint32_t id = min - 2 + random.below(36);
    const bool inside = id >= min && id <= max;
    switch (random.below(3)) {
      case 0: {
        const bool full = model.size() == 32;
        std::uint32_t lowest = min;
        while (!full && model.contains(lowest)) ++lowest;
        ASSERT_EQ(ids.allocate(), full ? kNone : lowest);
        if (!full) model.insert(lowest);
        break;
      }
      case 1:
        ASSERT_EQ(ids.allocate(id), inside ? id : kNone);
        if (inside) model.insert(id);
        break;
      default: ids.free(id); model.erase(id);
    }
    ASSERT_EQ(walk(ids), Ids(model.begin(), model.end()));
    ASSERT_EQ(ids.isAllocated(id), model.contains(id));
    ASSERT_EQ(ids.used(), model.size());
    ASSERT_EQ(ids.unused(), max - min + 1 - model.size());
    const auto above = model.lower_bound(id);
    const auto found = ids.lowerBound(id);
    ASSERT_EQ(found == ids.end(), above == model.end());
    if (above != model.end()) {
      ASSERT_EQ(*found, *above);
      ASSERT_EQ(Ids(found, ids.end()), Ids(above, model.end()));
    }
  }
}

TEST(Allocator, HoldsTheWholeRangeOfIdsOrNone) {
  constexpr auto all = std::uint64_t{1} << 32;
  Allocator ids(0, 0xffffffff), none(5, 4);
  EXPECT_EQ(ids.unused(), all);
  EXPECT_EQ(ids.allocate(0xffffffff), 0xffffffff);
  EXPECT_EQ(ids.allocate(), 0u);
  EXPECT_EQ(walk(ids), (Ids{0, 0xffffffff}));
  EXPECT_EQ(ids.unused(), all - 2);
  EXPECT_EQ(none.unused(), 0u);
  EXPECT_EQ(none.allocate(), kNone);
  for (const std::uint32_t id : {4u, 5u}) EXPECT_EQ(none.allocate(id), kNone);
}

}  // namespace
