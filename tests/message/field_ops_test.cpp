// What works on one field and needs no undo: equality, has, remove, copy, the text of a UId.
#include "message/field_ops.h"

#include <iomanip>
#include <sstream>

#include "message/equal.h"
#include "message/merge.h"
#include "message/stack.h"
#include "tests/message/samples.h"

namespace nv {
namespace {

using namespace test;

constexpr std::array kAll{held::nothing, held::zero, held::a, held::b};

// Part of the interface: the second message comes by value.
static_assert(std::is_same_v<decltype(&isEqual), bool (*)(const message&, message, unsigned)>);

TEST(Equality, ComparesPresenceAndValueAndIgnoresTheRest) {
  for (const sample& s : samples()) {
    for (const held x : kAll) {
      for (const held y : kAll) {
        const bool isBool = s.uid() == bool_id(0x5a).uid();  // its zero is its `b`
        const bool same = isBool ? s.make(x) == s.make(y) : x == y;
        message second = s.make(y, {listed::own});
        second.insert(u32_id(0x77), 1);
        EXPECT_EQ(isEqual(s.make(x), second, s.uid()), same);
        EXPECT_EQ(isEqual(second, s.make(x), s.uid() | 0x07000000), same);
      }
    }
  }
}

TEST(FieldOps, HasAndRemoveNameOneFieldWhateverItsType) {
  const message full = everyType(held::a);
  for (const sample& s : samples()) {
    for (const unsigned bits : {0u, 0x07000000u}) {
      message m = full;
      m.insert(key::removals, {s.uid(), 5});
      EXPECT_TRUE(has(m, s.uid() | bits));
      remove(&m, s.uid() | bits);
      EXPECT_FALSE(has(m, s.uid() | bits));
      remove(&m, s.uid() | bits);
      for (const sample& other : samples()) EXPECT_EQ(has(m, other.uid()), &other != &s);
      EXPECT_EQ(m.get(key::removals), (std::vector<unsigned>{s.uid(), 5}));
    }
  }
}

TEST(FieldOps, CopyMakesTheFieldWhatItIsInTheSource) {
  for (const sample& s : samples()) {
    for (const held from : kAll) {
      for (const held to : kAll) {
        message dst = s.make(to, {listed::own});
        copy(&dst, s.make(from, {listed::unrelated}), s.uid() | 0x02000000);
        EXPECT_EQ(dst, s.make(from, {listed::own})) << text(dst);
      }
      message self = s.make(from);
      copy(&self, self, s.uid());
      EXPECT_EQ(self, s.make(from));
    }
  }
}

std::string printed(unsigned uid, std::ostringstream os = std::ostringstream()) {
  EXPECT_EQ(&dumpUId(os, uid), &os);
  return os.str();
}

TEST(DumpUId, WritesTheIdAndTheSuffixOfItsType) {
  const std::vector<std::pair<unsigned, const char*>> rows{
      {0x00fe0007, "16646151_b"}, {0x08fe0005, "16646149_u"},  {0x10000001, "1_q"},
      {0x18000001, "1_a"},        {0x20000001, "1_s"},         {0x28fe001d, "16646173_m"},
      {0x30000001, "1_r"},        {0x80000001, "1_ba"},        {0x88000000, "0_ua"},
      {0x90000001, "1_qa"},       {0x98000001, "1_aa"},        {0xa0000001, "1_sa"},
      {0xa8000001, "1_ma"},       {0xb7ffffff, "16777215_ra"},
  };
  for (const auto& [uid, expected] : rows) EXPECT_EQ(printed(uid), expected);
}

TEST(DumpUId, FollowsTheFormatOfTheStreamAndLeavesItAlone) {
  std::ostringstream os;
  os << std::hex << std::showbase << std::setfill('.');
  dumpUId(os, 0x08fe0005) << ' ' << 255 << std::setw(9);
  dumpUId(os, 0x40000001) << ' ';
  EXPECT_EQ(os.str(), "0xfe0005_u 0xff........ ") << "of no type: nothing was written";
}

TEST(FieldOps, AMessageOnTopOfItselfHoldsWhatItHolds) {
  for (const sample& s : samples()) {
    for (const auto combine : {&stack, &remerge}) {
      message m = s.make(held::a, {listed::unrelated, listed::own});
      combine(&m, m, s.uid());
      EXPECT_EQ(m, s.make(held::a, {listed::unrelated}));
    }
  }
}

TEST(AUIdOfNoType, NamesNothingToAnyOfTheFunctions) {
  for (unsigned top = 0; top < 32; ++top) {
    if ((top & 15) <= 6) continue;
    const unsigned uid = top << 27 | 0x5a;
    SCOPED_TRACE(uid);
    message full = everyType(held::a);
    full.insert(key::removals, {uid});
    const message listing{{key::removals, {uid, 5}}};
    message m = full;
    message undo;

    EXPECT_FALSE(merge(full, listing, &m, &undo, uid));
    EXPECT_FALSE(merge(message(), full, &m, &undo, uid));
    EXPECT_FALSE(isEqual(full, full, uid));
    EXPECT_FALSE(has(full, uid));
    remove(&m, uid);
    copy(&m, message(), uid);
    copy(&m, everyType(held::b), uid);
    stack(&m, everyType(held::b), uid);
    stack(&undo, listing, uid);
    remerge(&m, everyType(held::b), uid);
    remerge(&m, message(), uid);
    EXPECT_EQ(m, full);
    EXPECT_TRUE(undo.empty());
    EXPECT_EQ(printed(uid), "");
  }
}

}  // namespace
}  // namespace nv
