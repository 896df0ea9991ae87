// Store files as files: who may open them, and what is no store file.
#include "platform/store_file.h"

#include <fstream>
#include <functional>
#include <future>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include "platform/store.h"
#include "tests/platform/store/store_process.h"
#include "tests/platform/store/store_sample.h"
#include "tests/support/temp_directory.h"

namespace store_test {
namespace {

namespace fs = std::filesystem;
using nv::Store;

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

struct Other {
  const char* name;
  std::function<void(const fs::path&)> make;
};

void runSql(const fs::path& file, const char* sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
}

TEST(StoreFileName, IsRefusedAndNothingIsTouchedWhereItNamesSomethingElse) {
  const std::vector<Other> others{
      {"text", [](auto& file) { std::ofstream(file) << "# settings\n\tcolour = gr\xc3\xbcn\n"; }},
      {"database", [](auto& file) { runSql(file, "CREATE TABLE t(a TEXT UNIQUE);"); }},
      {"database of this page size with a log", [](auto& file) {
         runSql(file,
                "PRAGMA page_size = 1024; PRAGMA journal_mode = WAL;"
                "CREATE TABLE t(a); INSERT INTO t VALUES(1);");
       }}};
  for (const Other& other : others) {
    SCOPED_TRACE(other.name);
    TempDirectory directory(TempDirectory::inMemory());
    const fs::path path = directory / "other";
    other.make(path);
    const Bytes before = readFile(path);
    std::string error;
    EXPECT_FALSE(nv::openStoreFile(path, &error));
    EXPECT_EQ(error, "store: " + path.string() + ": is not a store file");
    EXPECT_EQ(readFile(path), before);
    for (const auto& entry : fs::directory_iterator(directory.path()))
      EXPECT_TRUE(entry.path() == path || entry.path().extension() == ".lock") << entry.path();
  }
}

}  // namespace
}  // namespace store_test
