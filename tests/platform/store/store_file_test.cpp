// Store files as files: who may open them, and what is no store file.
#include "platform/store_file.h"

#include <fstream>
#include <functional>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include "tests/platform/store/store_sample.h"
#include "tests/support/temp_directory.h"

namespace store_test {
namespace {

namespace fs = std::filesystem;

TEST(StoreFile, SaysWhyItCannotBeMadeAndHarmsNothing) {
  TempDirectory directory;
  fs::create_directory(directory / "s.db.lock");
  for (const auto& [name, why] : {std::pair("no/s.db", "its directory is missing"),
                                  std::pair("s.db", "cannot be locked: is a directory")}) {
    const auto file = directory / name;
    std::string error;
    EXPECT_FALSE(nv::openStoreFile(file, &error));
    EXPECT_EQ(error, "store: " + file.string() + ": " + why);
    EXPECT_FALSE(fs::exists(file));
  }
  for (const auto* name : {"", ".", "s.db.lock", "new/"}) {
    std::string error;
    EXPECT_FALSE(nv::openStoreFile(directory / name, &error));
    EXPECT_EQ(error, "store: " + (directory / name).string() + ": is no file");
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), {}), 1) << "no lock is left";
}

TEST(StoreFile, IsForItsOwnerAloneWhateverTheUmask) {
  for (const mode_t mask : {0u, 0777u}) {
    TempDirectory directory;
    const mode_t before = ::umask(mask);
    const auto engine = nv::openStoreFile(directory / "s.db", nullptr);
    ASSERT_TRUE(engine);
    engine->submit({{engine->open("a").table, 1, value(1, 1)}});
    EXPECT_EQ(engine->wait().error, "");
    ::umask(before);
    for (const char* name : {"s.db", "s.db-wal"})
      EXPECT_EQ(fs::status(directory / name).permissions(), fs::perms(0600)) << name;
  }
}

void runSql(const fs::path& file, const char* sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(file.c_str(), &db), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
}

TEST(StoreFileName, IsRefusedAndNothingIsTouchedWhereItNamesSomethingElse) {
  const struct {
    const char* name;
    std::function<void(const fs::path&)> make;
  } others[] = {
      {"text", [](auto& file) { std::ofstream(file) << "# settings\n\tcolour = gr\xc3\xbcn\n"; }},
      {"database", [](auto& file) { runSql(file, "CREATE TABLE t(a TEXT UNIQUE);"); }},
      {"database of this page size with a log", [](auto& file) {
         runSql(file,
                "PRAGMA page_size = 1024; PRAGMA journal_mode = WAL;"
                "CREATE TABLE t(a); INSERT INTO t VALUES(1);");
       }}};
  for (const auto& other : others) {
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
