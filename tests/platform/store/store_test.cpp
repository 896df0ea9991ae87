#include "platform/store.h"

#include <array>
#include <map>

#include <gtest/gtest.h>

#include "platform/src/store/commit_queue.h"
#include "platform/store_file.h"
#include "testing/memory_engine.h"
#include "tests/support/random.h"
#include "tests/support/temp_directory.h"

namespace store_test {
namespace {

using nv::message;
using nv::Store;
using Ids = std::vector<std::uint32_t>;

constexpr unsigned kNone = 0xffffffff;

message number(unsigned n) { return message().insert(nv::u32_id(1), n); }
unsigned numberIn(const message& m) { return m.get(nv::u32_id(1), kNone); }

Ids idsOf(const Store& store) { return {store.ids().begin(), store.ids().end()}; }

/// A process with stores; what it did not write by its end is lost with it.
class Process {
 public:
  explicit Process(std::unique_ptr<nv::StoreEngine> engine) : queue(std::move(engine)) {
    nv::setCommitQueue(&queue);
  }
  ~Process() { nv::setCommitQueue(nullptr); }

  nv::CommitQueue queue;
};

/// On a file, or in memory.
class StoreOn : public ::testing::TestWithParam<bool> {
 protected:
  StoreOn() { restart(); }
  void restart() {
    process_.reset();
    const auto onFile = [&] { return nv::openStoreFile(directory_ / "service.db", nullptr); };
    process_ = std::make_unique<Process>(
        GetParam() ? onFile() : std::make_unique<nv::testkit::MemoryEngine>(stores_));
  }
  void finishAndRestart() {
    ASSERT_EQ(process_->queue.drain(), "");
    restart();
  }

  TempDirectory directory_;
  nv::testkit::MemoryStores stores_;
  std::unique_ptr<Process> process_;
};

INSTANTIATE_TEST_SUITE_P(Engines, StoreOn, ::testing::Bool(),
                         [](auto& on) { return on.param ? "File" : "Memory"; });

TEST_P(StoreOn, IsThereForTheFirstTimeUntilSomethingWasCommitted) {
  EXPECT_TRUE(Store("a").firstTime());
  finishAndRestart();
  EXPECT_TRUE(Store("a").firstTime());
  Store("a").set(1, number(1));
  Store("a").remove(1);
  EXPECT_FALSE(Store("a").firstTime()) << "there is something to commit";
  finishAndRestart();
  EXPECT_FALSE(Store("a").firstTime());
  EXPECT_EQ(Store("a").count(), 0u);
  EXPECT_TRUE(Store("b").firstTime());
}

TEST_P(StoreOn, TellsNamesApartWhateverBytesTheyHold) {
  const std::vector<std::string> names{"a",   "A", "a b", "\"a\"", std::string("a\0", 2),
                                       "%61", "ä", ""};
  for (unsigned i = 0; i < names.size(); ++i) Store(names[i]).set(0, number(i));
  finishAndRestart();
  for (unsigned i = 0; i < names.size(); ++i)
    EXPECT_EQ(numberIn(Store(names[i]).get(0)), i) << names[i];
}

TEST_P(StoreOn, HoldsTheOutermostIdsAndAnEmptyALongAndAnUnreadableRecord) {
  const std::vector<unsigned char> noise{1, 2, 3};
  message deep;
  for (int i = 0; i < 40; ++i) {
    const std::vector<unsigned char> inner(deep.bytes().begin(), deep.bytes().end());
    deep = message().insert(nv::message_id(1), nv::flat_view(inner)).insert(nv::u32_id(1), 7);
  }
  const std::map<std::uint32_t, message> records{
      {0, message().insert(nv::raw_id(1), std::vector<unsigned char>(100000, 7))},
      {1, message().insert(nv::message_id(1), nv::flat_view(noise))},
      {2, message().append(nv::message_array_id(1), nv::flat_view(noise))},
      {3, deep},
      {0xffffffff, {}}};
  for (const auto& [id, record] : records) Store("a").set(id, record);
  finishAndRestart();
  EXPECT_EQ(idsOf(Store("a")), (Ids{0, 1, 2, 3, 0xffffffff}));
  for (const auto& [id, record] : records) EXPECT_TRUE(Store("a").get(id) == record) << id;
}

TEST_P(StoreOn, DoesWhatMapsDoThroughRandomChangesCommitsAndRestarts) {
  Random random;
  SCOPED_TRACE(random.seed());
  using Model = std::array<std::map<std::uint32_t, unsigned>, 2>;
  const std::array<std::string, 2> names{"a", "b"};
  Model now, underWay, written;
  std::array<std::unique_ptr<Store>, 2> stores;
  const auto open = [&](unsigned n) {
    stores[n] = std::make_unique<Store>(names[n]);
    Ids expected;
    for (const auto& [id, value] : now[n]) expected.push_back(id);
    ASSERT_EQ(idsOf(*stores[n]), expected);
  };
  const auto finishWriting = [&] {
    process_->queue.finishWriting();
    written = underWay;
  };
  open(0), open(1);
  for (unsigned step = 0; step < 3000; ++step) {
    const unsigned n = random.below(2), id = random.below(50), what = random.below(100);
    if (what < 55) {
      stores[n]->set(id, number(step));
      now[n][id] = step;
    } else if (what < 80) {
      stores[n]->remove(id);
      now[n].erase(id);
    } else if (what < 84) {
      ASSERT_EQ(process_->queue.drain(), "");
      written = underWay = now;
    } else if (what < 92) {
      if (!process_->queue.canSubmit()) finishWriting();
      if (!process_->queue.canSubmit()) continue;
      process_->queue.submit();
      underWay = now;
    } else if (what < 98) {
      open(n);
    } else {
      finishWriting();
      stores = {};
      restart();
      now = written;
      open(0), open(1);
    }
    const auto at = now[n].find(id);
    ASSERT_EQ(numberIn(stores[n]->get(id)), at == now[n].end() ? kNone : at->second);
    ASSERT_EQ(stores[n]->count(), now[n].size());
  }
}

TEST(Store, WritesNothingAfterACommitOrAReadThatFailed) {
  for (const bool read : {false, true}) {
    nv::testkit::MemoryStores stores;
    auto* const engine = new nv::testkit::MemoryEngine(stores);
    Process process{std::unique_ptr<nv::StoreEngine>(engine)};
    nv::CommitQueue& queue = process.queue;
    std::vector<std::string> told;
    queue.onUnreadable([&](const std::string& why) { told.push_back(why); });
    Store store("a");
    store.set(1, number(1));
    EXPECT_EQ(queue.drain(), "");
    engine->hold();
    if (!read) engine->failCommit(1, "broken");
    store.set(2, number(2));
    queue.submit();
    store.set(3, number(3));
    if (read) {
      engine->failReads("broken");
      EXPECT_EQ(numberIn(store.get(2)), 2u) << "what is not written yet is not read";
      store.get(1);
      const Store other("b");
      EXPECT_EQ(told, std::vector<std::string>(2, "broken"));
    }
    engine->release();
    EXPECT_TRUE(queue.reap());
    EXPECT_EQ(queue.durable(), read ? 2u : 1u) << "what was under way is told of as before";
    EXPECT_TRUE(read || numberIn(store.get(2)) == 2u) << "it is seen until the process ends";
    EXPECT_EQ(queue.drain(), "broken");
    EXPECT_EQ(stores.records("a").size(), read ? 2u : 1u);
  }
}

TEST(Store, StopsTheProgramWhenThereIsNoEngine) {
  nv::setCommitQueue(nullptr);
  EXPECT_DEATH(Store("a"), "store: this process has no store engine");
}

}  // namespace
}  // namespace store_test
