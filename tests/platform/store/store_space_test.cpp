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
  void start() {
    engine_ = nullptr;
    engine_ = std::make_unique<nv::SqliteEngine>(file_, 1ms);
    EXPECT_EQ(engine_->error(), "");
  }
  std::string set(std::uint32_t id, message record) {
    engine_->submit({{engine_->open("a").table, id, std::move(record)}});
    return engine_->wait().error;
  }
  /// Records 0 and on, in a file that is closed again.
  void fill(unsigned records) {
    start();
    for (unsigned i = 0; i < records; ++i) ASSERT_EQ(set(i, number(i)), "");
    engine_ = nullptr;
  }
  void expectReads(const std::vector<message>& records) {
    const auto table = engine_->open("a");
    EXPECT_EQ(table.ids.size(), records.size());
    EXPECT_EQ(table.firstTime, records.empty());
    for (unsigned i = 0; i < records.size(); ++i) {
      const auto found = engine_->read(table.table, i);
      EXPECT_EQ(found.error, "");
      EXPECT_TRUE(found.record == records[i]) << i;
    }
  }
  static std::vector<message> numbers(unsigned records) {
    std::vector<message> all;
    for (unsigned i = 0; i < records; ++i) all.push_back(number(i));
    return all;
  }
  /// The engine takes changes again, as one finds out who asks only when woken, and keeps them.
  void expectTakesChanges(unsigned records) {
    std::counting_semaphore<> woken(0);
    engine_->onOutcome([&] { woken.release(); });
    while (!engine_->refusal().empty() && woken.try_acquire_for(5s)) {
    }
    engine_->onOutcome({});
    EXPECT_EQ(engine_->refusal(), "");
    EXPECT_EQ(set(records, number(records)), "");
    expectReads(numbers(records + 1));
    start();
    expectReads(numbers(records + 1));
  }

  TempDirectory directory_;
  std::filesystem::path file_ = directory_ / "s.db";
  std::unique_ptr<nv::SqliteEngine> engine_;
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
    engine_ = nullptr;
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
  auto acknowledged = numbers(10);
  {
    start();
    FullDisk full(24 * 1024);
    std::string error;
    for (unsigned turn = 1; turn < 40 && error.empty(); ++turn) {
      auto next = acknowledged;
      nv::StoreBatch batch;
      for (unsigned id = turn % 2; id < 7; id += 2) {
        next[id] = number(100 * turn).insert(nv::raw_id(2), std::vector<unsigned char>(500));
        batch.push_back({engine_->open("a").table, id, next[id]});
      }
      engine_->submit(batch);
      error = engine_->wait().error;
      if (error.empty()) acknowledged = next;
    }
    EXPECT_EQ(error, "file too large");
    EXPECT_FALSE(acknowledged[3] == number(3)) << "some were overwritten before";
    expectReads(acknowledged);
  }
  start();
  expectReads(acknowledged);
}

TEST_F(StoreFileWithoutSpace, ServesEveryReadAndRefusesChangesAndRepairsUntilThereIsSpace) {
  for (const unsigned records : {0u, 10u, 200u}) {
    const bool damaged = records == 200;
    file_ = directory_ / std::to_string(records);
    if (records > 0) fill(records);
    if (damaged) std::fstream(file_, std::ios::in | std::ios::out | std::ios::binary) << "no base";
    CapturedOutput output;
    {
      FullDisk full(0);
      start();
      expectReads(numbers(records));
      for (int i = 0; i < 3; ++i) EXPECT_EQ(engine_->refusal(), "file too large");
      EXPECT_TRUE(records > 0 || !set(0, number(0)).empty()) << "nothing is kept in memory alone";
    }
    expectTakesChanges(records);
    EXPECT_EQ(std::filesystem::exists(file_ += ".damaged-1"), damaged);
  }
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

TEST_F(StoreFileOnASmallDisk, WritesUntilItIsFullAndServesWhatOtherFilesLeaveNoRoomFor) {
  constexpr unsigned kUntilFull = 100000;
  for (const unsigned most : {0u, 50u, kUntilFull}) {
    file_ = directory_ / std::to_string(most);
    std::ofstream(directory_ / "ballast", std::ios::binary) << std::string(150000, 'x');
    unsigned acknowledged = 0;
    if (most > 0) {
      std::string error;
      start();
      while (acknowledged < most && (error = set(acknowledged, number(acknowledged))).empty())
        ++acknowledged;
      EXPECT_EQ(error, most == kUntilFull ? "no space left on device" : "");
      EXPECT_GT(acknowledged, std::min(most - 1, 100u));
      engine_ = nullptr;
    }
    fillDisk();
    start();
    EXPECT_EQ(engine_->refusal(), "no space left on device");
    expectReads(numbers(acknowledged));
    for (const char* file : {"ballast", "other"}) std::filesystem::remove(directory_ / file);
    expectTakesChanges(acknowledged);
    engine_ = nullptr;
    std::filesystem::remove(file_);
  }
}

TEST_F(StoreFileOnASmallDisk, ServesReadsWhileItMayOnlyBeRead) {
  fill(20);
  const std::filesystem::path killed = directory_ / "killed.db";
  start();
  for (unsigned i = 20; i < 30; ++i) ASSERT_EQ(set(i, number(i)), "");
  for (const char* ending : {"", "-wal"})
    std::filesystem::copy(file_.string() + ending, killed.string() + ending);
  engine_ = nullptr;
  file_ = killed;
  ASSERT_TRUE(makeReadOnly(true));
  start();
  EXPECT_EQ(engine_->refusal(), "read-only file system");
  expectReads(numbers(30));
  ASSERT_TRUE(makeReadOnly(false));
  expectTakesChanges(30);
}

}  // namespace
