// A store file whose bytes were changed at random: what is served must have been written.
#include <algorithm>

#include <gtest/gtest.h>

#include "tests/platform/store/store_damages.h"

namespace store_test {
namespace {

// Swapped pages count as touched, though Salvage finds their records; it may serve more than it
// must.
TEST(DamagedStoreFile, ServesTheRecordsOfUntouchedPagesAndNothingElse) {
  Random random;
  SCOPED_TRACE(random.seed());
  unsigned losses = 0;
  for (int round = 0; round < 6; ++round) {
    const Sample sample = makeClosedSample(random, 20 + random.below(200));
    std::map<Key, std::set<std::size_t>> pages;
    for (const auto& [key, record] : sample.last()) pages[key] = pagesOf(sample.file, record);
    for (const Damage& damage : damages()) {
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
    const Sample sample = makeSample(random, 20 + random.below(200));
    ASSERT_FALSE(sample.log.empty());
    for (const Damage& damage : damages()) {
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
    const Sample sample = makeSample(random, 60 + random.below(60));
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

TEST(DamagedStoreFile, IsWholeWhenOnlyItsProcessWasKilled) {
  Random random;
  SCOPED_TRACE(random.seed());
  for (int round = 0; round < 10; ++round) {
    const Sample sample = makeSample(random, 20 + random.below(200));
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
    const Sample sample = makeSample(random, 10 + random.below(60));
    Bytes file = sample.file, log = sample.log;
    anyDamage(random).apply(file, random);
    anyDamage(random).apply(log, random);
    for (const auto& [key, record] : openTwice(file, log).records) {
      const auto& written = sample.everWritten.at(key);
      ASSERT_TRUE(std::find(written.begin(), written.end(), record) != written.end());
    }
  }
}

TEST(DamagedStoreFile, BringsNoRemovedRecordBackWhenItsLogIsWhole) {
  Random random;
  SCOPED_TRACE(random.seed());
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
      const auto pages = pagesOf(file, record);
      ASSERT_FALSE(!pages.empty() && disjoint(pages, touched)) << key.first << ' ' << key.second;
    }
  }
}

}  // namespace
}  // namespace store_test
