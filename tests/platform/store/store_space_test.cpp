#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "platform/src/store_file/sqlite_engine.h"
#include "tests/support/captured_output.h"
#include "tests/support/temp_directory.h"

namespace {

using namespace std::chrono_literals;
using nv::message;

/// No file of this process grows beyond so many bytes: writes fail as they do on a full disk.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) {
    ::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(RLIMIT_FSIZE, &before_);
    rlimit limit = before_;
    limit.rlim_cur = bytes;
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() { ::setrlimit(RLIMIT_FSIZE, &before_); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit before_;
};

message number(unsigned n) { return message().insert(nv::u32_id(1), n); }

class StoreFileWithoutSpace : public ::testing::Test {
 protected:
  std::unique_ptr<nv::SqliteEngine> start() {
    auto engine = std::make_unique<nv::SqliteEngine>(file_, 1ms);
    EXPECT_EQ(engine->error(), "");
    return engine;
  }
  std::string set(nv::StoreEngine& engine, std::uint32_t id, message record) {
    engine.submit({{engine.open("a").table, id, std::move(record)}});
    return engine.wait().error;
  }
  message get(nv::StoreEngine& engine, std::uint32_t id) {
    return engine.read(engine.open("a").table, id);
  }
  void fill(unsigned records) {
    const auto engine = start();
    for (unsigned i = 0; i < records; ++i) ASSERT_EQ(set(*engine, i, number(i)), "");
  }
  /// Whether the engine takes changes again, as one finds out who asks now and then.
  bool takesChanges(nv::StoreEngine& engine) {
    for (int i = 0; i < 5000; ++i) {
      if (engine.refusal().empty()) return true;
      std::this_thread::sleep_for(1ms);
    }
    return false;
  }
  void expectReads(nv::StoreEngine& engine, unsigned records) {
    EXPECT_EQ(engine.open("a").ids.size(), records);
    for (unsigned i = 0; i < records; ++i) EXPECT_TRUE(get(engine, i) == number(i));
  }

  TempDirectory directory_;
  std::filesystem::path file_ = directory_ / "s.db";
};

TEST_F(StoreFileWithoutSpace, SaysWhyACommitFailedAndKeepsWhatWasThere) {
  fill(10);
  {
    const auto engine = start();
    FullDisk full(8 * 1024);
    std::string error;
    for (unsigned i = 0; i < 20 && error.empty(); ++i)
      error = set(*engine, 3, number(100 + i).insert(nv::raw_id(2), std::vector<unsigned char>(2000)));
    EXPECT_EQ(error, "file too large");
    EXPECT_TRUE(get(*engine, 4) == number(4));
  }
  const auto engine = start();
  EXPECT_EQ(engine->open("a").ids.size(), 10u);
  EXPECT_TRUE(get(*engine, 4) == number(4));
}

TEST_F(StoreFileWithoutSpace, ServesEveryReadAndRefusesChangesUntilThereIsSpace) {
  fill(10);
  std::unique_ptr<nv::SqliteEngine> engine;
  {
    FullDisk full(0);
    engine = start();
    expectReads(*engine, 10);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(engine->refusal(), "file too large");
  }
  EXPECT_TRUE(takesChanges(*engine));
  EXPECT_EQ(set(*engine, 10, number(10)), "");
  expectReads(*engine, 11);
}

TEST_F(StoreFileWithoutSpace, StartsEvenWhenItHasNoFileYet) {
  std::unique_ptr<nv::SqliteEngine> engine;
  {
    FullDisk full(0);
    engine = start();
    EXPECT_TRUE(engine->open("a").firstTime);
    EXPECT_EQ(engine->refusal(), "file too large");
    EXPECT_NE(set(*engine, 0, number(0)), "") << "nothing is kept in memory alone";
  }
  EXPECT_TRUE(takesChanges(*engine));
  EXPECT_EQ(set(*engine, 0, number(0)), "");
  engine = nullptr;
  expectReads(*start(), 1);
}

TEST_F(StoreFileWithoutSpace, ServesADamagedFileAndRepairsItWhenThereIsSpace) {
  fill(200);
  std::fstream(file_, std::ios::in | std::ios::out | std::ios::binary) << "no database";
  CapturedOutput output;
  std::unique_ptr<nv::SqliteEngine> engine;
  {
    FullDisk full(0);
    engine = start();
    expectReads(*engine, 200);
    EXPECT_NE(engine->refusal(), "");
  }
  EXPECT_TRUE(takesChanges(*engine));
  EXPECT_EQ(set(*engine, 200, number(200)), "");
  expectReads(*engine, 201);
  EXPECT_TRUE(std::filesystem::exists(directory_ / "s.db.damaged-1"));
}

}  // namespace
