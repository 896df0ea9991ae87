#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "platform/message.h"
#include "platform/store_file.h"
#include "tests/support/captured_output.h"
#include "tests/support/random.h"
#include "tests/support/temp_directory.h"

namespace {

namespace fs = std::filesystem;
using nv::message;
using Bytes = std::vector<unsigned char>;

constexpr std::size_t kPage = 1024;

Bytes readFile(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void writeFile(const fs::path& file, const Bytes& bytes) {
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

/// A value is its number, four bytes over and over, so that each page with a part of it can be
/// found.
message value(unsigned number, unsigned repeats) {
  Bytes bytes;
  for (unsigned i = 0; i < repeats; ++i)
    for (const unsigned shift : {24u, 16u, 8u, 0u})
      bytes.push_back(static_cast<unsigned char>((0xa5000000u | number) >> shift));
  return message().insert(nv::raw_id(1), bytes);
}

using Key = std::pair<std::string, std::uint32_t>;
using Records = std::map<Key, message>;

/// A store file that was filled at random, and what is known about it.
struct Sample {
  Bytes file, log;
  std::vector<Records> commits;  // after each one
  std::map<Key, std::vector<message>> everWritten;

  const Records& last() const { return commits.back(); }
};

const std::vector<std::string> kStores{
    "hosts", "routes", "a store with a longer name", "d", "e", "f", "g", "h", "i"};

class SampleMaker {
 public:
  explicit SampleMaker(Random& random) : random_(random) {}

  Sample make(unsigned batches) {
    TempDirectory directory(TempDirectory::inMemory());
    const fs::path file = directory / "s.db";
    {
      const auto engine = nv::openStoreFile(file, nullptr);
      for (const auto& name : kStores) tables_[name] = engine->open(name).table;
      for (unsigned i = 0; i < batches; ++i) {
        engine->submit(batch());
        EXPECT_EQ(engine->wait().error, "");
        sample_.commits.push_back(now_);
      }
      copyAtRest(file);
    }
    closed_ = readFile(file);
    return sample_;
  }
  /// The same, as it is after an orderly end: all is in the file.
  Sample makeClosed(unsigned batches) {
    make(batches);
    sample_.file = closed_;
    sample_.log.clear();
    return sample_;
  }

 private:
  // The writer may still be folding the log into the file.
  void copyAtRest(const fs::path& file) {
    const fs::path log = file.string() + "-wal";
    do {
      sample_.file = readFile(file);
      sample_.log = readFile(log);
    } while (readFile(file) != sample_.file || readFile(log) != sample_.log);
  }

  nv::StoreBatch batch() {
    std::map<Key, nv::StoreChange> changes;
    for (unsigned n = 1 + random_.below(8); n > 0; --n) {
      const Key key{kStores[random_.below(random_.below(2) ? 2 : 9)], random_.below(60)};
      changes[key] = {tables_[key.first], key.second, {}};
      now_.erase(key);
      if (random_.below(4) == 0) continue;
      const message set =
          value(++number_, random_.below(10) ? 1 + random_.below(60) : random_.below(1500));
      changes[key].record = set;
      now_[key] = set;
      sample_.everWritten[key].push_back(set);
    }
    if (random_.below(12) == 0) removeAll(kStores[random_.below(2)], changes);
    nv::StoreBatch batch;
    for (auto& [key, change] : changes) batch.push_back(change);
    return batch;
  }

  // So that whole pages fall out of use.
  void removeAll(const std::string& store, std::map<Key, nv::StoreChange>& changes) {
    for (std::uint32_t id = 0; id < 60; ++id) {
      if (now_.erase({store, id})) changes[{store, id}] = {tables_[store], id, {}};
    }
  }

  Random& random_;
  std::map<std::string, unsigned> tables_;
  unsigned number_ = 0;
  Records now_;
  Sample sample_;
  Bytes closed_;
};

struct Opened {
  Records records;
  std::string output;
  bool setAside;
};

/// Opens the file as a service does, twice: what was repaired must be whole the second time.
Opened openTwice(const Bytes& file, const Bytes& log) {
  TempDirectory directory(TempDirectory::inMemory());
  const fs::path path = directory / "s.db", logPath = directory / "s.db-wal";
  writeFile(path, file);
  if (!log.empty()) writeFile(logPath, log);
  Opened opened;
  for (const bool again : {false, true}) {
    CapturedOutput output;
    std::string error;
    const auto engine = nv::openStoreFile(path, &error);
    EXPECT_EQ(error, "");
    if (!engine) return opened;
    EXPECT_EQ(engine->refusal(), "");
    Records records;
    for (const auto& name : kStores) {
      const auto table = engine->open(name);
      EXPECT_EQ(table.error, "");
      for (const std::uint32_t id : table.ids) {
        const auto found = engine->read(table.table, id);
        EXPECT_EQ(found.error, "");
        records[{name, id}] = found.record;
      }
    }
    if (again) {
      EXPECT_EQ(output.text(), "") << "the second time all is well";
      EXPECT_TRUE(records == opened.records);
      engine->submit({{engine->open("hosts").table, 7, value(1, 1)}});
      EXPECT_EQ(engine->wait().error, "");
    }
    opened.records = records;
    if (!again) opened.output = output.text();
  }
  opened.setAside =
      fs::exists(directory / "s.db.damaged-1") || fs::exists(directory / "s.db.damaged-1-wal");
  if (opened.setAside) {
    EXPECT_EQ(readFile(directory / "s.db.damaged-1"), file) << "kept as it was found";
    EXPECT_EQ(readFile(directory / "s.db.damaged-1-wal"), log);
  }
  return opened;
}

/// The pages of the file that hold a part of the record.
std::set<std::size_t> pagesOf(const Bytes& file, const message& record) {
  const nv::byte_view raw = record.view(nv::raw_id(1));
  std::set<std::size_t> pages;
  if (raw.empty()) return pages;
  for (auto at = file.begin();; ++at) {
    at = std::search(at, file.end(), raw.begin(), raw.begin() + 4);
    if (at == file.end()) return pages;
    pages.insert(static_cast<std::size_t>(at - file.begin()) / kPage);
  }
}

struct Damage {
  const char* name;
  std::function<void(Bytes&, Random&)> apply;
};

std::size_t anywhere(const Bytes& bytes, Random& random) {
  return random.below(static_cast<unsigned>(bytes.size()));
}

/// Where a whole page begins.
std::size_t anyPage(const Bytes& bytes, Random& random) {
  return random.below(static_cast<unsigned>(bytes.size() / kPage)) * kPage;
}

const std::vector<Damage> kDamages{
    {"one bit",
     [](Bytes& b, Random& r) {
       b[anywhere(b, r)] ^= static_cast<unsigned char>(1u << r.below(8));
     }},
    {"a bit in the first bytes of a page",
     [](Bytes& b, Random& r) {
       b[anyPage(b, r) + r.below(30)] ^= static_cast<unsigned char>(1u << r.below(8));
     }},
    {"many bytes",
     [](Bytes& b, Random& r) {
       for (int i = 0; i < 40; ++i) b[anywhere(b, r)] = static_cast<unsigned char>(r.below(256));
     }},
    {"a page of zeros",
     [](Bytes& b, Random& r) {
       std::fill_n(b.begin() + static_cast<std::ptrdiff_t>(anyPage(b, r)), kPage, 0);
     }},
    {"a page of noise",
     [](Bytes& b, Random& r) {
       const std::size_t page = anyPage(b, r);
       for (std::size_t i = 0; i < kPage; ++i)
         b[page + i] = static_cast<unsigned char>(r.below(256));
     }},
    {"two pages swapped",
     [](Bytes& b, Random& r) {
       const auto one = b.begin() + static_cast<std::ptrdiff_t>(anyPage(b, r));
       const auto two = b.begin() + static_cast<std::ptrdiff_t>(anyPage(b, r));
       if (one != two) std::swap_ranges(one, one + kPage, two);
     }},
    {"a page over another",
     [](Bytes& b, Random& r) {
       const Bytes before = b;
       std::copy_n(before.begin() + static_cast<std::ptrdiff_t>(anyPage(b, r)), kPage,
                   b.begin() + static_cast<std::ptrdiff_t>(anyPage(b, r)));
     }},
    {"a file cut short", [](Bytes& b, Random& r) { b.resize(anywhere(b, r)); }},
    {"a file cut short at a page", [](Bytes& b, Random& r) { b.resize(anyPage(b, r)); }},
    {"a header of noise",
     [](Bytes& b, Random& r) {
       for (std::size_t i = 0; i < 100; ++i) b[i] = static_cast<unsigned char>(r.below(256));
     }},
    {"nothing but noise",
     [](Bytes& b, Random& r) {
       for (auto& byte : b) byte = static_cast<unsigned char>(r.below(256));
     }},
};

std::set<std::size_t> changedPages(const Bytes& before, const Bytes& after) {
  std::set<std::size_t> pages;
  for (std::size_t i = 0; i < before.size(); ++i)
    if (i >= after.size() || before[i] != after[i]) pages.insert(i / kPage);
  return pages;
}

bool disjoint(const std::set<std::size_t>& a, const std::set<std::size_t>& b) {
  return std::none_of(a.begin(), a.end(), [&](std::size_t page) { return b.contains(page); });
}

// Swapped pages count as touched, though Salvage finds their records; it may serve more than it
// must.
TEST(DamagedStoreFile, ServesTheRecordsOfUntouchedPagesAndNothingElse) {
  Random random;
  SCOPED_TRACE(random.seed());
  unsigned losses = 0;
  for (int round = 0; round < 6; ++round) {
    const Sample sample = SampleMaker(random).makeClosed(20 + random.below(200));
    std::map<Key, std::set<std::size_t>> pages;
    for (const auto& [key, record] : sample.last()) pages[key] = pagesOf(sample.file, record);
    for (const Damage& damage : kDamages) {
      for (int time = 0; time < 4; ++time) {
        SCOPED_TRACE(damage.name);
        Bytes file = sample.file;
        damage.apply(file, random);
        const Opened opened = openTwice(file, {});
        for (const auto& [key, record] : opened.records) {
          const auto written = sample.last().find(key);
          ASSERT_TRUE(written != sample.last().end()) << key.first << ' ' << key.second;
          ASSERT_TRUE(written->second == record) << key.first << ' ' << key.second;
        }
        const auto touched = changedPages(sample.file, file);
        for (const auto& [key, where] : pages) {
          const bool untouched = !where.empty() && disjoint(where, touched);
          ASSERT_TRUE(!untouched || opened.records.contains(key)) << key.first << ' ' << key.second;
        }
        const bool lost = opened.records.size() < sample.last().size();
        losses += lost;
        ASSERT_TRUE(!lost || opened.setAside);
        ASSERT_EQ(opened.setAside, opened.output.starts_with("store: ")) << opened.output;
      }
    }
  }
  EXPECT_GT(losses, 50u) << "the damage hit something";
}

TEST(DamagedStoreFile, GivesNothingOfALogButWhatWasCommitted) {
  Random random;
  SCOPED_TRACE(random.seed());
  unsigned noticed = 0;
  for (int round = 0; round < 6; ++round) {
    const Sample sample = SampleMaker(random).make(20 + random.below(200));
    ASSERT_FALSE(sample.log.empty());
    for (const Damage& damage : kDamages) {
      for (int time = 0; time < 4; ++time) {
        SCOPED_TRACE(damage.name);
        Bytes log = sample.log;
        damage.apply(log, random);
        const Opened opened = openTwice(sample.file, log);
        for (const auto& [key, record] : opened.records) {
          const auto& written = sample.everWritten.at(key);
          ASSERT_TRUE(std::find(written.begin(), written.end(), record) != written.end());
        }
        noticed += !opened.output.empty();
        const bool aCommit =
            opened.records.empty() || std::find(sample.commits.begin(), sample.commits.end(),
                                                opened.records) != sample.commits.end();
        ASSERT_TRUE(aCommit || !opened.output.empty())
            << "without a word only whole commits at the end may be missing";
      }
    }
  }
  EXPECT_GT(noticed, 20u) << "the damage hit something";
}

// A log whose pages are in the file already, but still valid, would take it back to a mixture of
// then and now.
TEST(DamagedStoreFile, IsWholeAtSomeCommitWhereverItsLogIsCutOff) {
  Random random;
  SCOPED_TRACE(random.seed());
  for (int round = 0; round < 40; ++round) {
    const Sample sample = SampleMaker(random).make(60 + random.below(60));
    Bytes log = sample.log;
    log.resize(anywhere(log, random));
    const Opened opened = openTwice(sample.file, log);
    EXPECT_EQ(opened.output, "");
    EXPECT_TRUE(opened.records.empty() || std::find(sample.commits.begin(), sample.commits.end(),
                                                    opened.records) != sample.commits.end());
  }
}

TEST(DamagedStoreFile, LosesAPageOfTheLogRatherThanServeWhatItHeldBefore) {
  Random random;
  SCOPED_TRACE(random.seed());
  constexpr std::size_t header = 32, frameHeader = 24, frame = frameHeader + kPage;
  unsigned noticed = 0;
  for (int round = 0; round < 30; ++round) {
    const Sample sample = SampleMaker(random).make(10 + random.below(100));
    std::map<std::uint32_t, std::size_t> newest;  // page -> where its last frame begins
    for (std::size_t at = header; at + frame <= sample.log.size(); at += frame)
      newest[nv::load32(&sample.log[at])] = at;
    const auto hit = std::next(
        newest.begin(), static_cast<int>(random.below(static_cast<unsigned>(newest.size()))));
    Bytes log = sample.log;
    log[hit->second + frameHeader + random.below(kPage)] ^= 1;
    const Opened opened = openTwice(sample.file, log);
    if (opened.output.empty()) continue;  // it was in the last transaction, which may be incomplete
    ++noticed;
    for (const auto& [key, record] : opened.records) {
      const auto last = sample.last().find(key);
      ASSERT_TRUE(last != sample.last().end() && last->second == record) << key.second;
    }
  }
  EXPECT_GT(noticed, 5u);
}

TEST(DamagedStoreFile, IsWholeWhenOnlyItsProcessWasKilled) {
  Random random;
  SCOPED_TRACE(random.seed());
  for (int round = 0; round < 10; ++round) {
    const Sample sample = SampleMaker(random).make(20 + random.below(200));
    const Opened opened = openTwice(sample.file, sample.log);
    EXPECT_TRUE(opened.records == sample.last());
    EXPECT_EQ(opened.output, "");
    EXPECT_FALSE(opened.setAside);
  }
}

TEST(DamagedStoreFile, SurvivesDamageInFileAndLogTogether) {
  Random random;
  SCOPED_TRACE(random.seed());
  for (int round = 0; round < 100; ++round) {
    const Sample sample = SampleMaker(random).make(10 + random.below(60));
    Bytes file = sample.file, log = sample.log;
    kDamages[random.below(static_cast<unsigned>(kDamages.size()))].apply(file, random);
    kDamages[random.below(static_cast<unsigned>(kDamages.size()))].apply(log, random);
    for (const auto& [key, record] : openTwice(file, log).records) {
      const auto& written = sample.everWritten.at(key);
      ASSERT_TRUE(std::find(written.begin(), written.end(), record) != written.end());
    }
  }
}

TEST(DamagedStoreFile, NamesEachLossInALineOfItsOwn) {
  Random random(1);
  const Sample sample = SampleMaker(random).makeClosed(100);
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
TEST(DamagedStoreFile, StillKnowsStoresThatWereEmptiedWhicheverPageIsDamaged) {
  const std::vector<std::string> emptied{"a", "With \"quotes\"", std::string(900, 'x')};
  TempDirectory directory(TempDirectory::inMemory());
  const fs::path path = directory / "s.db";
  {
    const auto engine = nv::openStoreFile(path, nullptr);
    for (const std::string& name : emptied) {
      engine->submit({{engine->open(name).table, 1, value(1, 1)}});
      ASSERT_EQ(engine->wait().error, "");
      engine->submit({{engine->open(name).table, 1, std::nullopt}});
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

TEST(DamagedStoreFile, SaysWhatCannotBeReadWhenItIsDamagedUnderARunningService) {
  TempDirectory directory(TempDirectory::inMemory());
  const fs::path path = directory / "s.db";
  nv::StoreBatch batch;
  for (std::uint32_t id = 0; id < 2000; ++id) batch.push_back({0, id, value(id, 100)});
  {
    const auto engine = nv::openStoreFile(path, nullptr);
    ASSERT_EQ(engine->open("a").table, 0u);
    engine->submit(batch);
    ASSERT_EQ(engine->wait().error, "");
  }
  const auto engine = nv::openStoreFile(path, nullptr);
  ASSERT_EQ(engine->open("a").ids.size(), batch.size());
  const auto middle = static_cast<std::streamoff>(fs::file_size(path) / kPage / 2 * kPage);
  std::fstream(path, std::ios::in | std::ios::out | std::ios::binary).seekp(middle)
      << std::string(20 * kPage, '\xff');
  EXPECT_EQ(engine->open("a").error,
            "records of \"a\" cannot be listed: database disk image is malformed");
  unsigned lost = 0;
  for (const auto& change : batch) {
    const auto found = engine->read(0, change.id);
    if (!found.error.empty()) ++lost;
    EXPECT_EQ(found.record == *change.record, found.error.empty()) << change.id;
    EXPECT_TRUE(found.error.empty() ||
                found.error == "record " + std::to_string(change.id) +
                                   " of \"a\" cannot be read: database disk image is malformed")
        << found.error;
  }
  EXPECT_GT(lost, 5u);
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

TEST(DamagedStoreFile, BringsNoRemovedRecordBackWhenItsLogIsWhole) {
  Random random;
  SCOPED_TRACE(random.seed());
  for (int round = 0; round < 60; ++round) {
    const Sample sample = SampleMaker(random).make(10 + random.below(100));
    const Damage& damage = kDamages[random.below(static_cast<unsigned>(kDamages.size()))];
    SCOPED_TRACE(damage.name);
    Bytes file = sample.file;
    damage.apply(file, random);
    const auto touched = changedPages(sample.file, file);
    for (const auto& [key, record] : openTwice(file, sample.log).records) {
      const auto last = sample.last().find(key);
      if (last != sample.last().end() && last->second == record) continue;
      const auto pages = pagesOf(file, record);
      ASSERT_FALSE(!pages.empty() && disjoint(pages, touched)) << key.first << ' ' << key.second;
    }
  }
}

TEST(DamagedStoreFile, IsNumberedAndTheNewestFourAreKept) {
  TempDirectory directory;
  CapturedOutput output;
  const fs::path path = directory / "s.db";
  const auto aside = [&](int number) {
    return path.string() + ".damaged-" + std::to_string(number);
  };
  for (int i = 1; i <= 12; ++i) {
    writeFile(path, Bytes(5000, static_cast<unsigned char>(i)));
    writeFile(path.string() + "-wal", Bytes(100, static_cast<unsigned char>(i)));
    ASSERT_TRUE(nv::openStoreFile(path, nullptr));
    for (int k = 1; k <= i; ++k) {
      EXPECT_EQ(fs::exists(aside(k)), k > i - 4) << k << " of " << i;
      EXPECT_EQ(fs::exists(aside(k) + "-wal"), k > i - 4) << k << " of " << i;
    }
    EXPECT_EQ(readFile(aside(i)), Bytes(5000, static_cast<unsigned char>(i)));
  }
}

TEST(DamagedStoreFile, LeavesFilesAloneThatOnlyLookLikeDamagedOnes) {
  TempDirectory directory;
  CapturedOutput output;
  const fs::path path = directory / "s.db";
  const std::vector<std::string> others{"s.db.damaged-", "s.db.damaged-1.txt", "s.db.damaged-x",
                                        "s2.db.damaged-1", "s.db.damaged-99999999999999999999"};
  for (const std::string& name : others) writeFile(directory / name, {1});
  for (unsigned char i = 1; i <= 6; ++i) {
    writeFile(path, Bytes(5000, i));
    ASSERT_TRUE(nv::openStoreFile(path, nullptr));
  }
  for (const std::string& name : others) EXPECT_EQ(readFile(directory / name), Bytes{1}) << name;
  EXPECT_EQ(readFile(directory / "s.db.damaged-6"), Bytes(5000, 6));
}

// A process can be killed between any two steps of putting a new file in the place of a damaged
// one.
TEST(DamagedStoreFile, IsReplacedFromWhereverAKilledProcessStopped) {
  Random random;
  SCOPED_TRACE(random.seed());
  const Sample good = SampleMaker(random).makeClosed(50);
  const Sample bad = SampleMaker(random).make(50);
  for (int stopped = 0; stopped < 3; ++stopped) {
    TempDirectory directory(TempDirectory::inMemory());
    const fs::path path = directory / "s.db";
    writeFile(path.string() + ".fresh", good.file);
    writeFile(stopped > 1 ? path.string() + ".damaged-1" : path.string(), bad.file);
    writeFile(stopped > 0 ? path.string() + ".damaged-1-wal" : path.string() + "-wal", bad.log);
    CapturedOutput output;
    const auto engine = nv::openStoreFile(path, nullptr);
    std::size_t count = 0;
    for (const auto& name : kStores) count += engine->open(name).ids.size();
    EXPECT_EQ(count, good.last().size());
    EXPECT_EQ(readFile(directory / "s.db.damaged-1"), bad.file);
    EXPECT_EQ(readFile(directory / "s.db.damaged-1-wal"), bad.log);
  }
}

}  // namespace
