#include <map>
#include <string>

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/store_file.h"
#include "tests/support/captured_output.h"
#include "tests/support/random.h"
#include "tests/support/temp_directory.h"

namespace {

using Model = std::map<std::uint32_t, unsigned>;  // the number of the batch that set the record

/// Batch `n`, from 1, is the same whoever asks: it sets some records to `n` and removes some.
std::map<std::uint32_t, bool> batch(unsigned seed, unsigned n) {
  Random random(seed + n);
  std::map<std::uint32_t, bool> sets;
  for (unsigned changes = 1 + random.below(6); changes > 0; --changes)
    sets[random.below(40)] = random.below(4) != 0;
  return sets;
}

void apply(Model& model, unsigned seed, unsigned n) {
  for (const auto& [id, set] : batch(seed, n)) {
    model.erase(id);
    if (set) model[id] = n;
  }
}

nv::message record(unsigned n, std::uint32_t id) {
  const std::vector<unsigned char> bytes((id % 5) * 300, static_cast<unsigned char>(n));
  return nv::message().insert(nv::u32_id(1), n).insert(nv::raw_id(2), bytes);
}

/// Commits batch after batch and writes the number of each one that is on disk to `acknowledge`.
[[noreturn]] void runWriter(const std::filesystem::path& file, unsigned seed, unsigned first,
                            int acknowledge) {
  const auto engine = nv::openStoreFile(file, nullptr);
  const unsigned table = engine->open("a").table;
  for (unsigned n = first;; ++n) {
    nv::StoreBatch changes;
    for (const auto& [id, set] : batch(seed, n)) {
      changes.push_back({table, id, {}});
      if (set) changes.back().record = record(n, id);
    }
    engine->submit(changes);
    if (!engine->wait().error.empty()) ::_exit(1);
    if (::write(acknowledge, &n, sizeof n) != sizeof n) ::_exit(2);
  }
}

/// Lets a writer go on after batch `done` and kills it after it has told of about `batches` more;
/// the last batch that it told of.
unsigned runAndKill(const std::filesystem::path& file, unsigned seed, unsigned done,
                    unsigned batches) {
  int ends[2];
  if (::pipe(ends) != 0) std::abort();
  const pid_t child = ::fork();
  if (child == 0) runWriter(file, seed, done + 1, ends[1]);
  ::close(ends[1]);
  unsigned told = done;
  for (unsigned i = 0; i < batches && ::read(ends[0], &told, sizeof told) == sizeof told; ++i) {
  }
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  for (unsigned n; ::read(ends[0], &n, sizeof n) == sizeof n;) told = n;
  ::close(ends[0]);
  return told;
}

bool holds(nv::StoreEngine& engine, const Model& model) {
  const auto table = engine.open("a");
  if (table.ids.size() != model.size()) return false;
  for (const auto& [id, n] : model)
    if (!(engine.read(table.table, id).record == record(n, id))) return false;
  return true;
}

TEST(KilledWriter, LosesNoAcknowledgedBatchAndLeavesNoneHalf) {
  Random random;
  SCOPED_TRACE(random.seed());
  const unsigned seed = random.below(1u << 30);
  TempDirectory directory;
  CapturedOutput output;
  Model model;
  unsigned done = 0;
  for (int kills = 0; kills < 100; ++kills) {
    const unsigned told = runAndKill(directory / "s.db", seed, done, 1 + random.below(12));
    ASSERT_GT(told, done);
    while (done < told) apply(model, seed, ++done);
    Model oneMore = model;
    apply(oneMore, seed, done + 1);
    const auto engine = nv::openStoreFile(directory / "s.db", nullptr);
    ASSERT_TRUE(engine);
    if (!holds(*engine, model)) {
      ASSERT_TRUE(holds(*engine, oneMore)) << "after kill " << kills << ", batch " << done;
      model = oneMore;
      ++done;
    }
  }
  EXPECT_EQ(output.text(), "") << "a killed process leaves no damage";
}

}  // namespace
