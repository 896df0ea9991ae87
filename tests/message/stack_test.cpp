#include "message/stack.h"

#include "tests/message/samples.h"

namespace nv {
namespace {

using namespace test;

constexpr held kNone = held::nothing;
constexpr held kA = held::a;
constexpr held kB = held::b;
constexpr listed kOwn = listed::own;
constexpr listed kOther = listed::unrelated;
constexpr listed kBits = listed::otherBits;

/// What a message says of the field: its value and the removal list.
struct saying {
  held value;
  listings list;
};

struct combining {
  saying dst, src, result;
};

using combiner = void (*)(message*, const message&, unsigned);

void check(combiner combine, const std::vector<combining>& rows) {
  for (const sample& s : samples()) {
    for (const unsigned uid : {s.uid(), s.uid() | 0x05000000}) {
      for (std::size_t k = 0; k < rows.size(); ++k) {
        SCOPED_TRACE("row " + std::to_string(k) + ", " + std::to_string(uid));
        const combining& row = rows[k];
        const message src = s.make(row.src.value, row.src.list, uid);
        const message expected = s.make(row.result.value, row.result.list, uid);
        message dst = s.make(row.dst.value, row.dst.list, uid);
        combine(&dst, src, uid);
        EXPECT_EQ(dst, expected) << text(dst);
        combine(&dst, src, uid);
        EXPECT_EQ(dst, expected) << "a second time: " << text(dst);
      }
    }
  }
}

TEST(Stack, DoesWhatTheTwoUpdatesDoOneAfterTheOther) {
  check(stack, {
                   // A value of the later update wins, and what was listed is listed no more.
                   {{kB, {}}, {kA, {}}, {kA, {}}},
                   {{kB, {kOwn, kOther}}, {kA, {}}, {kA, {kOther}}},
                   {{kNone, {kOther, kOwn, kBits}}, {kA, {kOwn}}, {kA, {kOther, kBits}}},
                   // A removal wins, and is remembered also where nothing was held.
                   {{kB, {}}, {kNone, {kOther, kOwn}}, {kNone, {kOwn}}},
                   {{kNone, {kOwn, kOther}}, {kNone, {kOwn}}, {kNone, {kOwn, kOther}}},
                   {{kNone, {kBits}}, {kNone, {kOwn}}, {kNone, {kBits, kOwn}}},
                   // A field that is not mentioned stays as it is.
                   {{kB, {}}, {kNone, {kBits}}, {kB, {}}},
                   {{kB, {kOwn}}, {kNone, {listed::otherTag}}, {kB, {kOwn}}},
               });
}

TEST(Remerge, MakesAnUpdateAgreeWithACompleteMessage) {
  check(remerge, {
                     {{kNone, {}}, {kA, {}}, {kA, {}}},
                     {{kB, {}}, {kA, {kOwn}}, {kA, {}}},
                     {{kNone, {kOwn, kOther}}, {kA, {}}, {kA, {kOther}}},
                     {{kB, {kBits, kOwn}}, {kA, {}}, {kA, {kBits}}},
                     // Lost, if it was held.
                     {{kB, {}}, {kNone, {}}, {kNone, {kOwn}}},
                     {{kB, {kBits}}, {kNone, {}}, {kNone, {kBits, kOwn}}},
                     // In neither: whatever either lists stays as it is.
                     {{kNone, {}}, {kNone, {kOwn}}, {kNone, {}}},
                     {{kNone, {kOwn}}, {kNone, {}}, {kNone, {kOwn}}},
                 });
}

TEST(Stack, AMessageOnTopOfItselfHoldsWhatItHolds) {
  for (const sample& s : samples()) {
    for (const combiner combine : {&stack, &remerge}) {
      message m = s.make(kA, {kOther, kOwn});
      combine(&m, m, s.uid());
      EXPECT_EQ(m, s.make(kA, {kOther}));
    }
  }
}

}  // namespace
}  // namespace nv
