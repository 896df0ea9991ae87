#include "tests/platform/store/store_sample.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "platform/store_file.h"
#include "tests/support/captured_output.h"
#include "tests/support/temp_directory.h"

namespace store_test {

namespace fs = std::filesystem;
using nv::message;

Bytes readFile(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void writeFile(const fs::path& file, const Bytes& bytes) {
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

message value(unsigned number, unsigned repeats) {
  Bytes bytes;
  for (unsigned i = 0; i < repeats; ++i)
    for (const unsigned shift : {24u, 16u, 8u, 0u})
      bytes.push_back(static_cast<unsigned char>((0xa5000000u | number) >> shift));
  return message().insert(nv::raw_id(1), bytes);
}

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

namespace {

const std::vector<std::string> kStores{
    "hosts", "routes", "a store with a longer name", "d", "e", "f", "g", "h", "i"};

class SampleMaker {
 public:
  explicit SampleMaker(Random& random) : random_(random) {}

  Sample make(unsigned batches, bool closed) {
    TempDirectory directory(TempDirectory::inMemory());
    const fs::path file = directory / "s.db", log = directory / "s.db-wal";
    {
      const auto engine = nv::openStoreFile(file, nullptr);
      for (const auto& name : kStores) tables_[name] = engine->open(name).table;
      for (unsigned i = 0; i < batches; ++i) {
        engine->submit(batch());
        EXPECT_EQ(engine->wait().error, "");
        sample_.commits.push_back(now_);
      }
      do {  // The writer may still be folding the log into the file.
        sample_.file = readFile(file);
        sample_.log = readFile(log);
      } while (readFile(file) != sample_.file || readFile(log) != sample_.log);
    }
    if (closed) {
      sample_.file = readFile(file);
      sample_.log.clear();
    }
    return sample_;
  }

 private:
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
    if (random_.below(12) == 0) {  // so that whole pages fall out of use
      const auto& store = kStores[random_.below(2)];
      for (std::uint32_t id = 0; id < 60; ++id)
        if (now_.erase({store, id})) changes[{store, id}] = {tables_[store], id, {}};
    }
    nv::StoreBatch batch;
    for (auto& [key, change] : changes) batch.push_back(change);
    return batch;
  }

  Random& random_;
  std::map<std::string, unsigned> tables_;
  unsigned number_ = 0;
  Records now_;
  Sample sample_;
};

}  // namespace

Sample makeSample(Random& random, unsigned batches, bool closed) {
  return SampleMaker(random).make(batches, closed);
}

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

}  // namespace store_test
