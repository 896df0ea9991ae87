// A store file whose bytes were changed at random: what is served must have been written.
#include <algorithm>
#include <functional>

#include <gtest/gtest.h>

#include "tests/platform/store/store_sample.h"

namespace store_test {
namespace {

/// An index into the bytes.
std::size_t anywhere(const Bytes& bytes, Random& random) {
  return random.below(static_cast<unsigned>(bytes.size()));
}

/// Where a whole page begins.
Bytes::iterator anyPage(Bytes& bytes, Random& random) {
  const auto pages = static_cast<unsigned>(bytes.size() / kPage);
  return bytes.begin() + static_cast<std::ptrdiff_t>(random.below(pages) * kPage);
}

unsigned char anyByte(Random& random) { return static_cast<unsigned char>(random.below(256)); }

void changeBit(unsigned char& byte, Random& random) {
  byte ^= static_cast<unsigned char>(1u << random.below(8));
}

struct Damage {
  const char* name;
  std::function<void(Bytes&, Random&)> apply;
};

const Damage kDamages[] = {
    {"one bit", [](Bytes& b, Random& r) { changeBit(b[anywhere(b, r)], r); }},
    {"a bit in the first bytes of a page",
     [](Bytes& b, Random& r) { changeBit(anyPage(b, r)[static_cast<int>(r.below(30))], r); }},
    {"many bytes",
     [](Bytes& b, Random& r) {
       for (int i = 0; i < 40; ++i) b[anywhere(b, r)] = anyByte(r);
     }},
    {"a page of zeros", [](Bytes& b, Random& r) { std::fill_n(anyPage(b, r), kPage, 0); }},
    {"a page of noise",
     [](Bytes& b, Random& r) {
       std::generate_n(anyPage(b, r), kPage, [&] { return anyByte(r); });
     }},
    {"two pages swapped",
     [](Bytes& b, Random& r) {
       const auto one = anyPage(b, r), two = anyPage(b, r);
       if (one != two) std::swap_ranges(one, one + kPage, two);
     }},
    {"a page over another",
     [](Bytes& b, Random& r) {
       Bytes before = b;
       std::copy_n(anyPage(before, r), kPage, anyPage(b, r));
     }},
    {"a file cut short", [](Bytes& b, Random& r) { b.resize(anywhere(b, r)); }},
    {"a file cut short at a page", [](Bytes& b, Random& r) { b.erase(anyPage(b, r), b.end()); }},
    {"a header of noise",
     [](Bytes& b, Random& r) { std::generate_n(b.begin(), 100, [&] { return anyByte(r); }); }},
    {"nothing but noise",
     [](Bytes& b, Random& r) { std::ranges::generate(b, [&] { return anyByte(r); }); }},
};

const Damage& anyDamage(Random& random) { return kDamages[random.below(std::size(kDamages))]; }

/// The pages that differ, those that are missing now included.
std::set<std::size_t> changedPages(const Bytes& before, const Bytes& after) {
  std::set<std::size_t> pages;
  for (std::size_t i = 0; i < before.size(); ++i)
    if (i >= after.size() || before[i] != after[i]) pages.insert(i / kPage);
  return pages;
}

/// Whether a record has pages, and none of them is among these.
bool untouched(const std::set<std::size_t>& ofRecord, const std::set<std::size_t>& touched) {
  return !ofRecord.empty() &&
         std::ranges::none_of(ofRecord, [&](auto page) { return touched.contains(page); });
}

class DamagedStoreFile : public ::testing::Test {
 protected:
  /// So many samples, each with every damage, four times.
  void forEachDamage(int samples, const std::function<Sample()>& make,
                     const std::function<void(const Sample&, const Damage&)>& test) {
    for (int round = 0; round < samples && !HasFailure(); ++round) {
      const Sample sample = make();
      for (const Damage& damage : kDamages)
        for (int time = 0; time < 4; ++time) {
          SCOPED_TRACE(damage.name);
          test(sample, damage);
        }
    }
  }

  static void expectAllWereWritten(const Sample& sample, const Records& records) {
    for (const auto& [key, record] : records) {
      const auto& written = sample.everWritten.at(key);
      ASSERT_TRUE(std::ranges::count(written, record) > 0) << key.first << ' ' << key.second;
    }
  }
  static bool isACommit(const Sample& sample, const Records& records) {
    return records.empty() || std::ranges::count(sample.commits, records) > 0;
  }

  Random random;
  ::testing::ScopedTrace trace{__FILE__, __LINE__, random.seed()};
};

// Swapped pages count as touched, though Salvage finds their records; it may serve more than it
// must.
TEST_F(DamagedStoreFile, ServesTheRecordsOfUntouchedPagesAndNothingElse) {
  unsigned losses = 0;
  const auto make = [&] { return makeClosedSample(random, 20 + random.below(200)); };
  forEachDamage(6, make, [&](const Sample& sample, const Damage& damage) {
    Bytes file = sample.file;
    damage.apply(file, random);
    const Opened opened = openTwice(file, {});
    const auto touched = changedPages(sample.file, file);
    std::size_t served = 0;
    for (const auto& [key, record] : sample.last()) {
      const auto found = opened.records.find(key);
      if (found == opened.records.end())
        ASSERT_FALSE(untouched(pagesOf(sample.file, record), touched)) << key.second;
      else
        served += found->second == record;
    }
    ASSERT_EQ(served, opened.records.size());
    const bool lost = served < sample.last().size();
    losses += lost;
    ASSERT_TRUE(!lost || opened.setAside);
    ASSERT_EQ(opened.setAside, opened.output.starts_with("store: ")) << opened.output;
  });
  EXPECT_GT(losses, 50u) << "the damage hit something";
}

TEST_F(DamagedStoreFile, GivesNothingOfALogButWhatWasCommitted) {
  unsigned noticed = 0;
  const auto make = [&] { return makeSample(random, 20 + random.below(200)); };
  forEachDamage(6, make, [&](const Sample& sample, const Damage& damage) {
    Bytes log = sample.log;
    damage.apply(log, random);
    const Opened opened = openTwice(sample.file, log);
    expectAllWereWritten(sample, opened.records);
    noticed += !opened.output.empty();
    ASSERT_TRUE(isACommit(sample, opened.records) || !opened.output.empty())
        << "without a word only whole commits at the end may be missing";
  });
  EXPECT_GT(noticed, 20u) << "the damage hit something";
}

// A log whose pages are in the file already, but still valid, would take it back to a mixture of
// then and now.
TEST_F(DamagedStoreFile, IsWholeAtSomeCommitWhereverItsLogIsCutOffAndAtTheLastWhereItIsNot) {
  for (int round = 0; round < 40; ++round) {
    const Sample sample = makeSample(random, 60 + random.below(60));
    Bytes log = sample.log;
    log.resize(anywhere(log, random));
    const Opened cut = openTwice(sample.file, log), whole = openTwice(sample.file, sample.log);
    EXPECT_TRUE(isACommit(sample, cut.records));
    EXPECT_TRUE(whole.records == sample.last());
    EXPECT_EQ(cut.output + whole.output, "");
    EXPECT_FALSE(whole.setAside);
  }
}

TEST_F(DamagedStoreFile, LosesAPageOfTheLogRatherThanServeWhatItHeldBefore) {
  constexpr std::size_t header = 32, frameHeader = 24, frame = frameHeader + kPage;
  unsigned noticed = 0;
  for (int round = 0; round < 60; ++round) {
    const Sample sample = makeSample(random, 10 + random.below(100));
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

TEST_F(DamagedStoreFile, SurvivesDamageInFileAndLogTogether) {
  for (int round = 0; round < 100; ++round) {
    const Sample sample = makeSample(random, 10 + random.below(60));
    Bytes file = sample.file, log = sample.log;
    anyDamage(random).apply(file, random);
    anyDamage(random).apply(log, random);
    expectAllWereWritten(sample, openTwice(file, log).records);
  }
}

TEST_F(DamagedStoreFile, BringsNoRemovedRecordBackWhenItsLogIsWhole) {
  for (int round = 0; round < 60; ++round) {
    const Sample sample = makeSample(random, 10 + random.below(100));
    const Damage& damage = anyDamage(random);
    SCOPED_TRACE(damage.name);
    Bytes file = sample.file;
    damage.apply(file, random);
    const auto touched = changedPages(sample.file, file);
    for (const auto& [key, record] : openTwice(file, sample.log).records) {
      const auto last = sample.last().find(key);
      if (last != sample.last().end() && last->second == record) continue;
      ASSERT_FALSE(untouched(pagesOf(file, record), touched)) << key.first << ' ' << key.second;
    }
  }
}

}  // namespace
}  // namespace store_test
