/// The same commands to a thousand and to a million: what one costs should not depend on how many
/// others there are.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "bench/support/bars.h"
#include "bench/support/chain_file.h"
#include "testing/kit.h"

namespace bench {

inline constexpr std::uint32_t kFew = 1000;
inline constexpr std::uint32_t kMany = 1000000;

/// The ids from 1 in a random order, handed out in batches; each comes once before one comes again.
class ShuffledIds {
 public:
  static constexpr std::size_t kBatch = 200;

  explicit ShuffledIds(std::uint32_t count) : ids_(shuffled(count)) {}

  std::vector<std::uint32_t> batch() {
    if (next_ + kBatch > ids_.size()) next_ = 0;
    const auto first = ids_.begin() + static_cast<std::ptrdiff_t>(next_);
    next_ += kBatch;
    return {first, first + kBatch};
  }
  /// None of the present batch.
  std::uint32_t other() {
    while (true) {
      const std::size_t k = random_() % ids_.size();
      if (k >= next_ || k + kBatch < next_) return ids_[k];
    }
  }

 private:
  std::vector<std::uint32_t> ids_;
  std::size_t next_ = 0;
  std::mt19937 random_{2};
};

template <class Crowd>
struct Operation {
  const char* name;
  void (Crowd::*command)(std::uint32_t id);
};
// Who was removed is added again.
template <class Crowd>
inline constexpr std::array<Operation<Crowd>, 4> kOperations{{{"set", &Crowd::set},
                                                              {"move", &Crowd::move},
                                                              {"remove", &Crowd::remove},
                                                              {"add", &Crowd::add}}};

/// Commands to a crowd, which has a member `ids` and takes all that is in `kOperations`.
template <class Crowd>
class Commands {
 public:
  explicit Commands(Crowd& crowd) : crowd_(crowd) {}

  void turn(nv::testkit::Kit& kit) {
    const auto ids = crowd_.ids.batch();
    for (std::size_t k = 0; k < times_.size(); ++k) {
      times_[k].take(timeOf([&] {
        for (const auto id : ids) (crowd_.*kOperations<Crowd>[k].command)(id);
        kit.settle();
      }));
    }
  }
  double nanos(std::size_t k) { return times_[k].time() * 1e9 / ShuffledIds::kBatch; }

 private:
  Crowd& crowd_;
  std::array<Fastest, kOperations<Crowd>.size()> times_;
};

/// Times every operation on both, in turns, and sets a bar for the ratio.
template <class Crowd>
void compare(nv::testkit::Kit& kit, Crowd& thousand, Crowd& million, const std::string& kind,
             Bars& bars) {
  constexpr unsigned kTurns = 40;
  Commands<Crowd> few(thousand), many(million);
  for (unsigned n = 0; n < kTurns; ++n) {
    few.turn(kit);
    many.turn(kit);
  }
  for (std::size_t k = 0; k < kOperations<Crowd>.size(); ++k) {
    const auto what = kind + kOperations<Crowd>[k].name;
    std::printf("%s: %.0f ns at 1,000, %.0f ns at 1,000,000\n", what.c_str(), few.nanos(k),
                many.nanos(k));
    bars.atMost(what + ", 1,000,000 / 1,000", many.nanos(k) / few.nanos(k), 2);
  }
}

}  // namespace bench
