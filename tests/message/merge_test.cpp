#include "message/merge.h"

#include "tests/message/samples.h"

namespace nv {
namespace {

using namespace test;

struct merging {
  const char* what;
  held current;
  held update;
  listings list;
  bool changes;
  held target;
  held undo;
  bool undoLists;
};

constexpr held kNone = held::nothing;
constexpr held kZero = held::zero;
constexpr held kA = held::a;
constexpr held kB = held::b;
constexpr listed kOwn = listed::own;

const std::vector<merging> kMergings{
    {"in neither, listed", kNone, kNone, {kOwn}, false, kNone, kNone, false},
    {"added", kNone, kA, {}, true, kA, kNone, true},
    {"zero is a value: added", kNone, kZero, {}, true, kZero, kNone, true},
    {"not mentioned, no list", kA, kNone, {}, false, kA, kNone, false},
    {"listed with other bits", kA, kNone, {listed::otherBits}, false, kA, kNone, false},
    {"listed with another tag", kA, kNone, {listed::otherTag}, false, kA, kNone, false},
    {"removed", kA, kNone, {listed::otherBits, listed::unrelated, kOwn}, true, kNone, kA, false},
    {"equal", kA, kA, {}, false, kA, kNone, false},
    {"equal, listed as well", kA, kA, {kOwn}, false, kA, kNone, false},
    {"changed", kA, kB, {}, true, kB, kA, false},
    {"shorter than before", kB, kZero, {}, true, kZero, kB, false},
};

message undoOf(const merging& m, const sample& s, unsigned uid) {
  message undo = s.make(m.undo, {listed::unrelated}, uid);
  if (m.undoLists) undo.append(key::removals, uid);
  return undo;
}

TEST(FieldMerge, TellsAppliesAndTakesBackWhatTheUpdateSaysOfOneField) {
  for (const sample& s : samples()) {
    for (const merging& m : kMergings) {
      // The zero of bool is its `b`.
      if (m.changes && s.make(m.current) == s.make(m.update)) continue;
      for (const unsigned uid : {s.uid(), s.uid() | 0x05000000}) {
        SCOPED_TRACE(std::string(m.what) + " " + std::to_string(uid));
        message state = s.make(m.current);
        const message update = s.make(m.update, m.list, uid);
        message target = s.make(kB);
        message undo = s.make(kNone, {listed::unrelated}, uid);
        const message before = undo;

        EXPECT_EQ(merge(state, update, nullptr, nullptr, uid), m.changes);
        EXPECT_EQ(merge(state, update, &target, nullptr, uid), m.changes);
        EXPECT_EQ(target, s.make(m.changes ? m.target : kB)) << "a target of its own";
        EXPECT_EQ(merge(state, update, nullptr, &undo, uid), m.changes);
        EXPECT_EQ(undo, undoOf(m, s, uid)) << text(undo);
        EXPECT_EQ(state, s.make(m.current)) << "only read";

        undo = before;
        EXPECT_EQ(merge(state, update, &state, &undo, uid), m.changes);
        EXPECT_EQ(state, s.make(m.target)) << "the state as its own target: " << text(state);
        EXPECT_EQ(undo, undoOf(m, s, uid)) << text(undo);
      }
    }
  }
}

TEST(FieldMerge, TheUpdateMayBeTheTargetOrTheUndo) {
  for (const sample& s : samples()) {
    for (const held current : {kNone, kA}) {
      message update = s.make(kB);
      EXPECT_TRUE(merge(s.make(current), update, &update, nullptr, s.uid()));
      EXPECT_EQ(update, s.make(kB));
    }
    message update = s.make(kB), target;
    EXPECT_TRUE(merge(s.make(kA), update, &target, &update, s.uid()));
    EXPECT_EQ(update, s.make(kA)) << "holds the undo";
    EXPECT_EQ(target.find(s.uid()), update.find(s.uid())) << "read when it was written";
  }
}

TEST(FieldMerge, TheRemovalListIsAFieldLikeAnyOther) {
  const unsigned uid = key::removals.uid();
  const message listing{{key::removals, {5, 6}}};
  message state;
  message undo;
  EXPECT_TRUE(merge(state, listing, &state, &undo, uid));
  EXPECT_EQ(state, listing);
  EXPECT_EQ(undo, (message{{key::removals, {uid}}}));
  EXPECT_FALSE(merge(state, message(), &state, &undo, uid));
  EXPECT_TRUE(merge(state, undo, &state, nullptr, uid)) << "a change, not a removal";
  EXPECT_EQ(state, undo);
}

}  // namespace
}  // namespace nv
