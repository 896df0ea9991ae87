#include "platform/store.h"

#include <map>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "platform/observer.h"
#include "platform/store_file.h"
#include "testing/memory_engine.h"
#include "tests/platform/store/store_process.h"
#include "tests/support/random.h"
#include "tests/support/temp_directory.h"

namespace store_test {
namespace {

using nv::message;
using nv::Store;

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

TEST(Store, StopsTheProgramWhenThereIsNoEngine) {
  nv::setCommitQueue(nullptr);
  EXPECT_DEATH(Store("a"), "store: this process has no store engine");
}

}  // namespace
}  // namespace store_test
