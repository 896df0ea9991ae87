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

std::uint32_t lowestFree(const std::set<std::uint32_t>& used, std::uint32_t min,
                         std::uint32_t max) {
  std::uint32_t id = min;
  while (used.contains(id)) ++id;
  return id > max ? kNone : id;
}

// A small range, so that runs of ids meet, part and fill it up.
TEST(Allocator, DoesWhatASetOfIdsDoes) {
  Random random;
  SCOPED_TRACE(random.seed());
  constexpr std::uint32_t min = 10, max = 41;
  Allocator ids(min, max);
  std::set<std::uint32_t> model;
  for (int step = 0; step < 20000; ++step) {
    const std::uint32_t id = 8 + random.below(36);
    const bool inside = id >= min && id <= max;
    switch (random.below(3)) {
      case 0: {
        const std::uint32_t expected = lowestFree(model, min, max);
        ASSERT_EQ(ids.allocate(), expected);
        if (expected != kNone) model.insert(expected);
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

TEST(Allocator, HoldsTheWholeRangeOfIds) {
  Allocator ids(0, 0xffffffff);
  EXPECT_EQ(ids.unused(), std::uint64_t{1} << 32);
  EXPECT_EQ(ids.allocate(0xffffffff), 0xffffffff);
  EXPECT_TRUE(ids.isAllocated(0xffffffff));
  EXPECT_EQ(ids.allocate(), 0u);
  ids.allocate(0xfffffffe);
  EXPECT_EQ(walk(ids), (Ids{0, 0xfffffffe, 0xffffffff}));
  EXPECT_EQ(ids.unused(), (std::uint64_t{1} << 32) - 3);
  ids.free(0xffffffff);
  EXPECT_EQ(walk(ids), (Ids{0, 0xfffffffe}));
}

TEST(Allocator, GivesNoIdWhenTheRangeIsFullOrEndsBeforeItBegins) {
  Allocator full(0xfffffffe, 0xffffffff), none(5, 4);
  for (const std::uint32_t id : {0xfffffffe, 0xffffffff, kNone}) EXPECT_EQ(full.allocate(), id);
  EXPECT_EQ(full.used(), 2u);
  for (const Allocator* ids : {&full, &none}) EXPECT_EQ(ids->unused(), 0u);
  EXPECT_EQ(none.allocate(), kNone);
  for (const std::uint32_t id : {4u, 5u}) EXPECT_EQ(none.allocate(id), kNone);
  EXPECT_EQ(walk(none), Ids());
}

}  // namespace
