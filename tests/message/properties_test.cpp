// What must hold of any messages, over random ones of all fourteen types.
#include <set>

#include <gtest/gtest.h>

#include "message/field_ops.h"
#include "message/merge.h"
#include "message/stack.h"
#include "platform/keys.h"
#include "tests/support/random.h"
#include "tests/support/random_message.h"

namespace nv {
namespace {

using keys = std::set<unsigned>;

constexpr unsigned kIds = 3;
constexpr int kRuns = 400;

/// Random fields whose UIds are given to the calls with bits that name no other field.
struct random_source : testkit::random_source {
  using testkit::random_source::random_source;
  unsigned givenUid() { return uid(kIds) | bits; }
  const unsigned bits = oneIn(2) ? 0x05000000 : 0;
};

/// An update: fields, and a removal list that names some of them as well.
message someUpdate(random_source& random) {
  message update = random.someMessage(random.below(20), kIds);
  for (unsigned n = random.below(20); n != 0; --n) {
    const unsigned uid = random.givenUid() ^ (random.oneIn(8) ? 0x02000000 : 0);
    if (!update.hasElem(key::removals, uid)) update.append(key::removals, uid);
  }
  return update;
}

keys someKeys(random_source& random) {
  keys made;
  for (unsigned n = random.below(60); n != 0; --n) made.insert(random.givenUid());
  return made;
}

/// Returns the keys that changed.
keys apply(message& state, const message& update, const keys& over, message* undo = nullptr) {
  keys changed;
  for (const unsigned uid : over)
    if (merge(state, update, &state, undo, uid)) changed.insert(uid);
  return changed;
}

bool says(const message& update, unsigned uid) {
  return has(update, uid) || update.hasElem(key::removals, uid);
}

bool listsOnce(const message& update) {
  const auto list = update.get(key::removals);
  return keys(list.begin(), list.end()).size() == list.size();
}

template <class Check>
void forManyRuns(Check check) {
  Random seeds;
  SCOPED_TRACE(seeds.seed());
  for (int run = 0; run < kRuns && !testing::Test::HasFailure(); ++run) {
    SCOPED_TRACE(run);
    random_source random(seeds.below(1u << 31));
    check(random);
  }
}

TEST(MergeProperty, UndosMergedBackInReverseRestoreEachState) {
  forManyRuns([](random_source& random) {
    struct step {
      message before, undo;
      keys over, changed;
    };
    std::vector<step> steps;
    message state = random.someMessage(20, kIds);
    for (unsigned n = 1 + random.below(4); n != 0; --n) {
      step made{state, {}, someKeys(random), {}};
      made.changed = apply(state, someUpdate(random), made.over, &made.undo);
      steps.push_back(std::move(made));
    }
    for (; !steps.empty(); steps.pop_back()) {
      const step& last = steps.back();
      ASSERT_EQ(apply(state, last.undo, last.over), last.changed);
      ASSERT_EQ(state, last.before);
    }
  });
}

TEST(StackProperty, AStackedUpdateDoesWhatTheTwoDoInTurn) {
  forManyRuns([](random_source& random) {
    const message first = someUpdate(random);
    const message second = someUpdate(random);
    const keys over = someKeys(random);
    message stacked = first;
    for (const unsigned uid : over) stack(&stacked, second, uid);

    message state = random.someMessage(20, kIds);
    message inTurn = state;
    apply(inTurn, first, over);
    apply(inTurn, second, over);
    apply(state, stacked, over);
    ASSERT_EQ(state, inTurn);
    ASSERT_TRUE(listsOnce(stacked));
  });
}

TEST(RemergeProperty, AnUpdateThenLeadsToTheCompleteMessageWhereverItSaysSomething) {
  forManyRuns([](random_source& random) {
    const message first = someUpdate(random);
    const message complete = someUpdate(random);
    const keys over = someKeys(random);
    message update = first;
    for (const unsigned uid : over) remerge(&update, complete, uid);

    message state = random.someMessage(20, kIds);
    message expected = state;
    for (const unsigned uid : over)
      if (says(first, uid) || has(complete, uid)) copy(&expected, complete, uid);
    apply(state, update, over);
    ASSERT_EQ(state, expected);
    ASSERT_TRUE(listsOnce(update));
  });
}

}  // namespace
}  // namespace nv
