#include "platform/store.h"

#include <future>
#include <map>
#include <memory>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/message.h"
#include "platform/observer.h"
#include "platform/src/store/commit_queue.h"
#include "platform/store_file.h"
#include "testing/memory_engine.h"
#include "tests/support/random.h"
#include "tests/support/temp_directory.h"

namespace {

using nv::message;
using nv::Store;

message number(unsigned n) { return message().insert(nv::u32_id(1), n); }
unsigned numberIn(const message& m) { return m.get(nv::u32_id(1), 0xffffffff); }

std::vector<std::uint32_t> idsOf(const Store& store) {
  return {store.ids().begin(), store.ids().end()};
}

/// What survives a process.
class Disk {
 public:
  virtual ~Disk() = default;
  virtual std::unique_ptr<nv::StoreEngine> engine() = 0;
};

class File : public Disk {
 public:
  std::unique_ptr<nv::StoreEngine> engine() override {
    return nv::openStoreFile(directory_ / "service.db", nullptr);
  }

 private:
  TempDirectory directory_;
};

class Memory : public Disk {
 public:
  std::unique_ptr<nv::StoreEngine> engine() override {
    return std::make_unique<nv::testkit::MemoryEngine>(stores_);
  }

 private:
  nv::testkit::MemoryStores stores_;
};

/// A process with stores; what it did not write by `finish` is lost with it.
class Process {
 public:
  explicit Process(std::unique_ptr<nv::StoreEngine> engine) : queue_(std::move(engine)) {
    nv::setCommitQueue(&queue_);
  }
  ~Process() { nv::setCommitQueue(nullptr); }
  std::string finish() { return queue_.drain(); }
  nv::CommitQueue& queue() { return queue_; }

 private:
  nv::CommitQueue queue_;
};

class StoreOn : public ::testing::TestWithParam<bool> {
 protected:
  StoreOn() { restart(); }
  void restart() {
    process_.reset();
    process_ = std::make_unique<Process>(disk_->engine());
  }
  void finishAndRestart() {
    ASSERT_EQ(process_->finish(), "");
    restart();
  }

  std::unique_ptr<Disk> disk_ =
      GetParam() ? std::unique_ptr<Disk>(new File) : std::unique_ptr<Disk>(new Memory);
  std::unique_ptr<Process> process_;
};

INSTANTIATE_TEST_SUITE_P(Engines, StoreOn, ::testing::Bool(),
                         [](auto& on) { return on.param ? "File" : "Memory"; });

TEST_P(StoreOn, ShowsChangesBeforeTheyAreWritten) {
  Store store("a");
  store.set(3, number(30));
  store.set(1, number(10));
  store.set(3, number(31));
  EXPECT_EQ(numberIn(store.get(3)), 31u);
  EXPECT_EQ(idsOf(store), (std::vector<std::uint32_t>{1, 3}));
  store.remove(1);
  EXPECT_TRUE(store.get(1).empty());
  EXPECT_EQ(store.count(), 1u);
  process_->queue().submit();
  store.set(3, number(32));
  EXPECT_EQ(numberIn(store.get(3)), 32u);
}

TEST_P(StoreOn, ShowsChangesToAStoreOpenedAnewBeforeTheyAreWritten) {
  Store("a").set(1, number(10));
  ASSERT_EQ(process_->finish(), "");
  Store("a").set(2, number(20));
  process_->queue().submit();
  Store("a").remove(1);
  Store again("a");
  EXPECT_EQ(idsOf(again), (std::vector<std::uint32_t>{2}));
  EXPECT_EQ(numberIn(again.get(2)), 20u);
  EXPECT_FALSE(again.firstTime());
}

TEST_P(StoreOn, KeepsTheLastOfSeveralChangesToOneRecord) {
  {
    Store store("a");
    store.set(1, number(10));
    store.set(2, number(20));
    store.remove(1);
    store.remove(2);
    store.set(2, number(21));
  }
  finishAndRestart();
  Store store("a");
  EXPECT_EQ(idsOf(store), (std::vector<std::uint32_t>{2}));
  EXPECT_EQ(numberIn(store.get(2)), 21u);
}

TEST_P(StoreOn, LosesWhatWasNotCommitted) {
  Store("a").set(1, number(10));
  finishAndRestart();
  Store("a").set(1, number(11));
  restart();
  EXPECT_EQ(numberIn(Store("a").get(1)), 10u);
}

TEST_P(StoreOn, IsThereForTheFirstTimeUntilSomethingWasCommitted) {
  EXPECT_TRUE(Store("a").firstTime());
  finishAndRestart();
  EXPECT_TRUE(Store("a").firstTime());
  Store("a").set(1, number(1));
  Store("a").remove(1);
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

TEST_P(StoreOn, HoldsTheLowestAndTheHighestIdAndAnEmptyAndALongRecord) {
  const message lengthy = message().insert(nv::raw_id(1), std::vector<unsigned char>(100000, 7));
  {
    Store store("a");
    store.set(0, lengthy);
    store.set(0xffffffff, message());
  }
  finishAndRestart();
  Store store("a");
  EXPECT_EQ(idsOf(store), (std::vector<std::uint32_t>{0, 0xffffffff}));
  EXPECT_TRUE(store.get(0) == lengthy);
  EXPECT_TRUE(store.has(0xffffffff));
  EXPECT_TRUE(store.get(0xffffffff).empty());
}

TEST_P(StoreOn, KeepsNestedMessagesThatCannotBeReadAsTheyWereSet) {
  const std::vector<unsigned char> noise{1, 2, 3};
  message deep;
  for (int i = 0; i < 40; ++i) {
    const std::vector<unsigned char> inner(deep.bytes().begin(), deep.bytes().end());
    deep = message().insert(nv::message_id(1), nv::flat_view(inner)).insert(nv::u32_id(1), 7);
  }
  const message records[] = {message().insert(nv::message_id(1), nv::flat_view(noise)),
                             message().append(nv::message_array_id(1), nv::flat_view(noise)), deep};
  for (unsigned id = 0; id < 3; ++id) Store("a").set(id, records[id]);
  finishAndRestart();
  for (unsigned id = 0; id < 3; ++id) EXPECT_TRUE(Store("a").get(id) == records[id]) << id;
}

TEST_P(StoreOn, DoesWhatMapsDoThroughRandomChangesAndRestarts) {
  Random random;
  SCOPED_TRACE(random.seed());
  const std::vector<std::string> names{"a", "b"};
  using Model = std::map<std::pair<std::string, std::uint32_t>, unsigned>;
  Model written, model;
  std::map<std::string, std::unique_ptr<Store>> stores;
  const auto openAll = [&] {
    for (const auto& name : names) stores[name] = std::make_unique<Store>(name);
  };
  openAll();
  for (unsigned step = 0; step < 3000; ++step) {
    const std::string& name = names[random.below(2)];
    const std::uint32_t id = random.below(50);
    const unsigned what = random.below(100);
    if (what < 60) {
      stores[name]->set(id, number(step));
      model[{name, id}] = step;
    } else if (what < 90) {
      stores[name]->remove(id);
      model.erase({name, id});
    } else if (what < 98) {
      ASSERT_EQ(process_->finish(), "");
      written = model;
    } else {
      stores.clear();
      restart();
      openAll();
      model = written;
    }
    const auto at = model.find({name, id});
    ASSERT_EQ(numberIn(stores[name]->get(id)), at == model.end() ? 0xffffffff : at->second);
  }
  for (const auto& name : names) {
    std::vector<std::uint32_t> expected;
    for (const auto& [key, value] : model)
      if (key.first == name) expected.push_back(key.second);
    EXPECT_EQ(idsOf(*stores[name]), expected);
  }
}

TEST(Store, TellsTheObserverOfEachCallAtOnceAndInOrder) {
  struct Log : nv::Observer {
    void storeSet(std::string_view store, std::uint32_t id, const message& record) override {
      text +=
          std::string(store) + std::to_string(id) + '=' + std::to_string(numberIn(record)) + ' ';
    }
    void storeRemove(std::string_view store, std::uint32_t id) override {
      text += std::string(store) + std::to_string(id) + "- ";
    }
    std::string text;
  } log;
  Memory memory;
  Process process(memory.engine());
  nv::setObserver(&log);
  Store store("s");
  store.set(2, number(20));
  store.set(2, number(21));
  store.remove(7);
  store.remove(2);
  nv::setObserver(nullptr);
  EXPECT_EQ(log.text, "s2=20 s2=21 s7- s2- ");
}

/// What a test can tell the engine in memory to do.
class CommitQueue : public ::testing::Test {
 protected:
  nv::testkit::MemoryStores stores_;
  nv::testkit::MemoryEngine* engine_ = new nv::testkit::MemoryEngine(stores_);
  Process process_{std::unique_ptr<nv::StoreEngine>(engine_)};
  nv::CommitQueue& queue_ = process_.queue();
  Store store_{"a"};
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

TEST(Store, StopsTheProgramWhenThereIsNoEngine) {
  nv::setCommitQueue(nullptr);
  EXPECT_DEATH(Store("a"), "store: this process has no store engine");
}

TEST(StoreFile, RefusesASecondProcessAndHarmsNothing) {
  TempDirectory directory;
  const auto file = directory / "service.db";
  {
    Process process(nv::openStoreFile(file, nullptr));
    Store store("a");
    store.set(1, number(1));
    ASSERT_EQ(process.finish(), "");
    std::string error;
    EXPECT_EQ(nv::openStoreFile(file, &error), nullptr);
    EXPECT_EQ(error, "store: " + file.string() + ": is in use by another process");
    store.set(2, number(2));
    ASSERT_EQ(process.finish(), "");
  }
  Process process(nv::openStoreFile(file, nullptr));
  EXPECT_EQ(Store("a").count(), 2u);
}

TEST(StoreFile, SaysWhenItsDirectoryIsMissing) {
  TempDirectory directory;
  std::string error;
  EXPECT_EQ(nv::openStoreFile(directory / "no" / "service.db", &error), nullptr);
  EXPECT_NE(error.find("its directory is missing"), std::string::npos) << error;
}

TEST(StoreFile, SaysWhyItCannotBeLockedAndHarmsNothing) {
  TempDirectory directory;
  std::filesystem::create_directory(directory / "s.db.lock");
  std::string error;
  EXPECT_FALSE(nv::openStoreFile(directory / "s.db", &error));
  EXPECT_EQ(error,
            "store: " + (directory / "s.db").string() + ": cannot be locked: is a directory");
  EXPECT_FALSE(std::filesystem::exists(directory / "s.db"));
}

TEST(StoreFile, IsForItsOwnerAloneWhateverTheUmask) {
  for (const mode_t mask : {0u, 0777u}) {
    TempDirectory directory;
    const mode_t before = ::umask(mask);
    const auto engine = nv::openStoreFile(directory / "s.db", nullptr);
    ASSERT_TRUE(engine);
    engine->submit({{engine->open("a").table, 1, number(1)}});
    EXPECT_EQ(engine->wait().error, "");
    ::umask(before);
    using std::filesystem::perms;
    for (const char* name : {"s.db", "s.db-wal"})
      EXPECT_EQ(std::filesystem::status(directory / name).permissions(),
                perms::owner_read | perms::owner_write)
          << name;
  }
}

TEST(StoreFile, CallsItsWakerWhenAnOutcomeCanBeTaken) {
  TempDirectory directory;
  const auto engine = nv::openStoreFile(directory / "service.db", nullptr);
  const unsigned table = engine->open("a").table;
  for (unsigned i = 0; i < 20; ++i) {
    std::promise<void> woken;
    engine->onOutcome([&] { woken.set_value(); });
    engine->submit({{table, i, number(i)}});
    woken.get_future().wait();
    const auto outcome = engine->outcome();
    ASSERT_TRUE(outcome);
    EXPECT_EQ(outcome->error, "");
    EXPECT_GT(outcome->microseconds, 0u);
    EXPECT_FALSE(engine->outcome()) << "an outcome is taken once";
  }
}

}  // namespace
