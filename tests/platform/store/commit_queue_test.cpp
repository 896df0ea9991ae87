#include "platform/src/store/commit_queue.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/store.h"
#include "testing/memory_engine.h"
#include "tests/platform/store/store_process.h"

namespace store_test {
namespace {

/// What a test can tell the engine in memory to do.
class CommitQueue : public ::testing::Test {
 protected:
  nv::testkit::MemoryStores stores_;
  nv::testkit::MemoryEngine* engine_ = new nv::testkit::MemoryEngine(stores_);
  Process process_{std::unique_ptr<nv::StoreEngine>(engine_)};
  nv::CommitQueue& queue_ = process_.queue();
  nv::Store store_{"a"};
};

TEST_F(CommitQueue, TellsHowFarTheDiskHasCome) {
  engine_->hold();
  store_.set(1, number(1));
  store_.set(1, number(2));
  queue_.submit();
  store_.set(2, number(3));
  EXPECT_FALSE(queue_.reap());
  EXPECT_EQ(queue_.made(), 3u);
  EXPECT_EQ(queue_.durable(), 0u);
  engine_->commit();
  ASSERT_TRUE(queue_.reap());
  EXPECT_EQ(queue_.durable(), 2u);
  EXPECT_TRUE(queue_.gathering());
  EXPECT_EQ(queue_.drain(), "");
  EXPECT_TRUE(queue_.allDurable());
  EXPECT_EQ(engine_->commits(), 2u);
}

TEST_F(CommitQueue, StopsAtTheFirstFailedCommit) {
  engine_->failCommit(2, "no space");
  store_.set(1, number(1));
  EXPECT_EQ(queue_.drain(), "");
  store_.set(1, number(2));
  EXPECT_EQ(queue_.drain(), "no space");
  EXPECT_EQ(queue_.durable(), 1u);
  EXPECT_EQ(numberIn(store_.get(1)), 2u) << "what was set is seen until the process ends";
  EXPECT_EQ(numberIn(stores_.get("a", 1)), 1u);
  store_.set(2, number(3));
  EXPECT_EQ(queue_.drain(), "no space") << "no later change is written over the gap";
  EXPECT_EQ(stores_.records("a").size(), 1u);
}

TEST_F(CommitQueue, KeepsTheFirstChangesWhenThePowerFailsInABatch) {
  engine_->cutAfter(2);
  for (const unsigned id : {5u, 3u, 4u}) store_.set(id, number(id));
  EXPECT_NE(queue_.drain(), "");
  EXPECT_TRUE(stores_.records("a").contains(3));
  EXPECT_TRUE(stores_.records("a").contains(4));
  EXPECT_FALSE(stores_.records("a").contains(5));
}

TEST_F(CommitQueue, TellsOfAReadThatFailsAndWritesNothingAfterIt) {
  std::vector<std::string> told;
  queue_.onUnreadable([&](const std::string& why) { told.push_back(why); });
  store_.set(1, number(1));
  EXPECT_EQ(queue_.drain(), "");
  engine_->hold();
  store_.set(2, number(2));
  queue_.submit();
  store_.set(3, number(3));
  engine_->failReads("the disk does not answer");
  store_.get(2);
  EXPECT_TRUE(told.empty()) << "what is not written yet is not read";
  store_.get(1);
  nv::Store other("b");
  EXPECT_EQ(told, std::vector<std::string>(2, "the disk does not answer"));
  engine_->release();
  queue_.reap();
  EXPECT_EQ(queue_.durable(), 2u) << "what was under way is told of as before";
  EXPECT_EQ(queue_.drain(), "the disk does not answer");
  EXPECT_TRUE(stores_.records("a").contains(2));
  EXPECT_FALSE(stores_.records("a").contains(3));
}

}  // namespace
}  // namespace store_test
