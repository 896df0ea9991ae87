/// The random numbers of a test: new ones each run, or those of CONFKIT_SEED, to see a failure
/// again.
#pragma once

#include <cstdlib>
#include <random>
#include <string>

class Random {
 public:
  Random() : Random(newSeed()) {}
  explicit Random(unsigned seed) : seed_(seed), engine_(seed) {}

  /// From 0 up to but without `n`, which is not 0.
  unsigned below(unsigned n) { return static_cast<unsigned>(engine_() % n); }
  /// For SCOPED_TRACE.
  std::string seed() const { return "CONFKIT_SEED=" + std::to_string(seed_); }

 private:
  static unsigned newSeed() {
    if (const char* given = std::getenv("CONFKIT_SEED"))
      return static_cast<unsigned>(std::strtoul(given, nullptr, 10));
    return std::random_device()();
  }

  unsigned seed_;
  std::mt19937 engine_;
};
