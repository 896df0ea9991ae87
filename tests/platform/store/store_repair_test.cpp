// What is said of a damaged store file, what is kept of it, and what is known afterwards.
#include <algorithm>
#include <fstream>
#include <functional>

#include <gtest/gtest.h>

#include "platform/store_file.h"
#include "tests/platform/store/store_sample.h"
#include "tests/support/captured_output.h"
#include "tests/support/temp_directory.h"

namespace store_test {
namespace {

namespace fs = std::filesystem;

TEST(RepairedStoreFile, NamesEachLossInALineOfItsOwn) {
  Random random(1);
  const Sample sample = makeSample(random, 100, true);
  const auto hit = std::find_if(
      sample.last().begin(), sample.last().end(),
      [&](const auto& record) { return pagesOf(sample.file, record.second).size() == 1; });
  const nv::byte_view raw = hit->second.view(nv::raw_id(1));
  Bytes file = sample.file;
  *std::search(file.begin(), file.end(), raw.begin(), raw.begin() + 4) ^= 1;
  const Opened opened = openTwice(file, {});
  EXPECT_EQ(opened.records.size(), sample.last().size() - 1);
  EXPECT_FALSE(opened.records.contains(hit->first));
  EXPECT_NE(opened.output.find(" held record " + std::to_string(hit->first.second) +
                               ", which is damaged\n"),
            std::string::npos)
      << opened.output;
  EXPECT_EQ(std::count(opened.output.begin(), opened.output.end(), '\n'), 3) << opened.output;
}

// What the damage leaves of the list of tables, or the tables themselves, tells of them.
TEST(RepairedStoreFile, StillKnowsStoresThatWereEmptiedWhicheverPageIsDamaged) {
  const std::vector<std::string> emptied{"a", "With \"quotes\"", std::string(900, 'x')};
  TempDirectory directory(TempDirectory::inMemory());
  const fs::path path = directory / "s.db";
  {
    const auto engine = nv::openStoreFile(path, nullptr);
    for (const std::string& name : emptied)
      for (const auto& record : {std::optional(value(1, 1)), std::optional<nv::message>()}) {
        engine->submit({{engine->open(name).table, 1, record}});
        ASSERT_EQ(engine->wait().error, "");
      }
  }
  const Bytes sound = readFile(path);
  for (std::size_t page = 0; page < sound.size() / kPage; ++page) {
    SCOPED_TRACE(page);
    Bytes file = sound;
    std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(page * kPage), kPage, 'x');
    writeFile(path, file);
    CapturedOutput output;
    const auto engine = nv::openStoreFile(path, nullptr);
    EXPECT_TRUE(page > 3 || !output.text().empty()) << "later ones may be out of use";
    for (const std::string& name : emptied) {
      EXPECT_FALSE(engine->open(name).firstTime) << name;
      EXPECT_TRUE(engine->open(name).ids.empty()) << name;
    }
    EXPECT_TRUE(engine->open("c").firstTime);
  }
}

/// Damage to a file that is open: `damage` gets pages in the middle, which are not in memory.
void damageMiddle(const fs::path& path, const std::function<void(Bytes&)>& damage) {
  Bytes file = readFile(path);
  const auto middle = file.begin() + static_cast<std::ptrdiff_t>(file.size() / kPage / 2 * kPage);
  Bytes pages(middle, middle + 300 * kPage);
  damage(pages);
  std::copy(pages.begin(), pages.end(), middle);
  std::fstream(path, std::ios::in | std::ios::out | std::ios::binary)
      .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
}

void overwrite(Bytes& pages) { std::fill_n(pages.begin(), 20 * kPage, 0xff); }

/// Leaves of the tree with one record of several: who searches the others just does not find them.
void shortenLeaves(Bytes& pages) {
  for (std::size_t at = 0; at < pages.size(); at += kPage)
    if (pages[at] == 0x0d) pages[at + 4] = 1;
}

TEST(RepairedStoreFile, SaysWhatCannotBeReadWhenItIsDamagedUnderARunningService) {
  nv::StoreBatch batch;
  for (std::uint32_t id = 0; id < 2000; ++id) batch.push_back({0, id, value(id, 100)});
  for (const auto& damage : {overwrite, shortenLeaves}) {
    TempDirectory directory(TempDirectory::inMemory());
    const fs::path path = directory / "s.db";
    {
      const auto engine = nv::openStoreFile(path, nullptr);
      ASSERT_EQ(engine->open("a").table, 0u);
      engine->submit(batch);
      ASSERT_EQ(engine->wait().error, "");
    }
    const auto engine = nv::openStoreFile(path, nullptr);
    ASSERT_EQ(engine->open("a").ids.size(), batch.size());
    damageMiddle(path, damage);
    unsigned lost = 0;
    for (const auto& change : batch) {
      const auto found = engine->read(0, change.id);
      ASSERT_EQ(found.record == *change.record, found.error.empty()) << change.id;
      if (found.error.empty()) continue;
      ++lost;
      ASSERT_EQ(found.error, "record " + std::to_string(change.id) +
                                 " of \"a\" cannot be read: database disk image is malformed");
    }
    EXPECT_GT(lost, 5u);
    if (damage == overwrite) {
      EXPECT_EQ(engine->open("a").error,
                "records of \"a\" cannot be listed: database disk image is malformed");
    }
  }
}

TEST(RepairedStoreFile, NumbersTheDamagedOnesKeepsTheNewestFourAndTouchesNoOther) {
  TempDirectory directory;
  CapturedOutput output;
  const fs::path path = directory / "s.db";
  const std::vector<std::string> others{"s.db.damaged-", "s.db.damaged-1.txt", "s.db.damaged-x",
                                        "s2.db.damaged-1", "s.db.damaged-99999999999999999999"};
  for (const std::string& name : others) writeFile(directory / name, {1});
  const auto aside = [&](int number) {
    return path.string() + ".damaged-" + std::to_string(number);
  };
  for (int i = 1; i <= 12; ++i) {
    writeFile(path, Bytes(5000, static_cast<unsigned char>(i)));
    writeFile(path.string() + "-wal", Bytes(100, static_cast<unsigned char>(i)));
    ASSERT_TRUE(nv::openStoreFile(path, nullptr));
    for (int k = 1; k <= i; ++k)
      for (const char* ending : {"", "-wal"})
        EXPECT_EQ(fs::exists(aside(k) + ending), k > i - 4) << k << ending << " of " << i;
    EXPECT_EQ(readFile(aside(i)), Bytes(5000, static_cast<unsigned char>(i)));
  }
  for (const std::string& name : others) EXPECT_EQ(readFile(directory / name), Bytes{1}) << name;
}

// A process can be killed between any two steps of putting a new file in the place of a damaged
// one.
TEST(RepairedStoreFile, IsReplacedFromWhereverAKilledProcessStopped) {
  Random random;
  SCOPED_TRACE(random.seed());
  const Sample good = makeSample(random, 50, true);
  const Sample bad = makeSample(random, 50, false);
  for (int stopped = 0; stopped < 3; ++stopped) {
    TempDirectory directory(TempDirectory::inMemory());
    const fs::path path = directory / "s.db";
    writeFile(path.string() + ".fresh", good.file);
    writeFile(stopped > 1 ? path.string() + ".damaged-1" : path.string(), bad.file);
    writeFile(stopped > 0 ? path.string() + ".damaged-1-wal" : path.string() + "-wal", bad.log);
    CapturedOutput output;
    const auto engine = nv::openStoreFile(path, nullptr);
    for (const auto& [key, record] : good.last())
      EXPECT_TRUE(engine->read(engine->open(key.first).table, key.second).record == record);
    EXPECT_EQ(readFile(directory / "s.db.damaged-1"), bad.file);
    EXPECT_EQ(readFile(directory / "s.db.damaged-1-wal"), bad.log);
  }
}

}  // namespace
}  // namespace store_test
