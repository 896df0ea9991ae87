#include <chrono>
#include <fstream>
#include <semaphore>

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>

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
    const auto found = engine.read(engine.open("a").table, id);
    EXPECT_EQ(found.error, "");
    return found.record;
  }
  void fill(unsigned records) {
    const auto engine = start();
    for (unsigned i = 0; i < records; ++i) ASSERT_EQ(set(*engine, i, number(i)), "");
  }
  /// Whether the engine takes changes again, as one finds out who asks only when woken.
  bool takesChanges(nv::StoreEngine& engine) {
    std::counting_semaphore<> woken(0);
    engine.onOutcome([&] { woken.release(); });
    while (!engine.refusal().empty() && woken.try_acquire_for(5s)) {
    }
    engine.onOutcome({});
    return engine.refusal().empty();
  }
  void expectReads(nv::StoreEngine& engine, unsigned records) {
    EXPECT_EQ(engine.open("a").ids.size(), records);
    for (unsigned i = 0; i < records; ++i) EXPECT_TRUE(get(engine, i) == number(i));
  }

  TempDirectory directory_;
  std::filesystem::path file_ = directory_ / "s.db";
};

/// A file system of 400 KiB of its own, seen by this process alone. Needs the rights to mount one.
class StoreFileOnASmallDisk : public StoreFileWithoutSpace {
 protected:
  void SetUp() override {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", directory_.path().c_str(), "tmpfs", 0, "size=400k") != 0)
      GTEST_SKIP() << "may not mount a file system";
    mounted_ = true;
  }
  void TearDown() override {
    if (mounted_) ::umount2(directory_.path().c_str(), MNT_DETACH);
  }
  bool makeReadOnly(bool readOnly) {
    const unsigned long flags = MS_REMOUNT | (readOnly ? MS_RDONLY : 0);
    return ::mount("none", directory_.path().c_str(), nullptr, flags, "size=400k") == 0;
  }
  void fillDisk() {
    std::ofstream fill(directory_ / "other", std::ios::binary);
    while (fill.put('x').flush()) {
    }
  }

  bool mounted_ = false;
};

TEST_F(StoreFileWithoutSpace, SaysWhyACommitFailedAndKeepsWhatWasAcknowledged) {
  fill(10);
  std::vector<message> acknowledged;
  for (unsigned i = 0; i < 10; ++i) acknowledged.push_back(number(i));
  {
    const auto engine = start();
    const unsigned table = engine->open("a").table;
    FullDisk full(24 * 1024);
    std::string error;
    for (unsigned turn = 1; turn < 40; ++turn) {
      std::vector<message> next = acknowledged;
      nv::StoreBatch batch;
      for (unsigned id = turn % 2; id < 7; id += 2) {
        next[id] = number(100 * turn).insert(nv::raw_id(2), std::vector<unsigned char>(500));
        batch.push_back({table, id, next[id]});
      }
      engine->submit(batch);
      error = engine->wait().error;
      if (!error.empty()) break;
      acknowledged = next;
    }
    EXPECT_EQ(error, "file too large");
    EXPECT_FALSE(acknowledged[3] == number(3)) << "some were overwritten before";
    for (unsigned i = 0; i < 10; ++i) EXPECT_TRUE(get(*engine, i) == acknowledged[i]) << i;
  }
  const auto engine = start();
  EXPECT_EQ(engine->open("a").ids.size(), 10u);
  for (unsigned i = 0; i < 10; ++i) EXPECT_TRUE(get(*engine, i) == acknowledged[i]) << i;
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

TEST_F(StoreFileWithoutSpace, ReportsEachLossOnceHoweverOftenARepairFails) {
  fill(200);
  std::fstream(file_, std::ios::in | std::ios::out | std::ios::binary).seekp(2 * 1024)
      << std::string(1024, '\xff');
  const std::filesystem::path obstacle = directory_ / "s.db.tmp/obstacle";
  std::filesystem::create_directories(obstacle);
  nv::StoreFileOpener opener(file_);
  for (const bool again : {false, true}) {
    CapturedOutput output;
    const auto opened = opener.open();
    EXPECT_TRUE(opened.standIn);
    EXPECT_NE(opened.refusal, "");
    EXPECT_EQ(output.text().find("page 3 ") == std::string::npos, again) << output.text();
    EXPECT_EQ(output.text().empty(), again) << output.text();
  }
  std::filesystem::remove_all(obstacle.parent_path());
  CapturedOutput output;
  EXPECT_FALSE(opener.open().standIn);
  EXPECT_EQ(output.text().find("page 3 "), std::string::npos) << output.text();
  EXPECT_NE(output.text().find("records were found undamaged"), std::string::npos);
}

TEST_F(StoreFileOnASmallDisk, WritesUntilItIsFullAndStartsAgainThere) {
  std::ofstream(directory_ / "ballast", std::ios::binary) << std::string(150000, 'x');
  unsigned acknowledged = 0;
  std::string error;
  {
    const auto engine = start();
    for (; (error = set(*engine, acknowledged, number(acknowledged))).empty(); ++acknowledged) {
    }
  }
  EXPECT_EQ(error, "no space left on device");
  EXPECT_GT(acknowledged, 100u);
  fillDisk();
  auto engine = start();
  EXPECT_EQ(engine->refusal(), "no space left on device");
  expectReads(*engine, acknowledged);
  std::filesystem::remove(directory_ / "ballast");
  EXPECT_TRUE(takesChanges(*engine));
  EXPECT_EQ(set(*engine, acknowledged, number(acknowledged)), "");
  expectReads(*engine, acknowledged + 1);
}

TEST_F(StoreFileOnASmallDisk, ServesWhatAnotherFileLeavesNoRoomFor) {
  fill(50);
  fillDisk();
  auto engine = start();
  expectReads(*engine, 50);
  EXPECT_EQ(engine->refusal(), "no space left on device");
  std::filesystem::remove(directory_ / "other");
  EXPECT_TRUE(takesChanges(*engine));
  EXPECT_EQ(set(*engine, 50, number(50)), "");
  engine = nullptr;
  expectReads(*start(), 51);
}

TEST_F(StoreFileOnASmallDisk, StartsWithoutAFileWhereThereIsNoRoomForOne) {
  fillDisk();
  auto engine = start();
  EXPECT_EQ(engine->refusal(), "no space left on device");
  EXPECT_TRUE(engine->open("a").firstTime);
  std::filesystem::remove(directory_ / "other");
  EXPECT_TRUE(takesChanges(*engine));
  EXPECT_EQ(set(*engine, 0, number(0)), "");
}

TEST_F(StoreFileOnASmallDisk, ServesReadsWhileItMayOnlyBeRead) {
  fill(20);
  const std::filesystem::path killed = directory_ / "killed.db";
  {
    const auto engine = start();
    for (unsigned i = 20; i < 30; ++i) ASSERT_EQ(set(*engine, i, number(i)), "");
    for (const char* ending : {"", "-wal"})
      std::filesystem::copy(file_.string() + ending, killed.string() + ending);
  }
  file_ = killed;
  ASSERT_TRUE(makeReadOnly(true));
  auto engine = start();
  EXPECT_EQ(engine->refusal(), "read-only file system");
  expectReads(*engine, 30);
  ASSERT_TRUE(makeReadOnly(false));
  EXPECT_TRUE(takesChanges(*engine));
  EXPECT_EQ(set(*engine, 30, number(30)), "");
  expectReads(*engine, 31);
}

}  // namespace
