/// What can happen to the bytes of a file.
#pragma once

#include <functional>
#include <set>
#include <vector>

#include "tests/platform/store/store_sample.h"

namespace store_test {

struct Damage {
  const char* name;
  std::function<void(Bytes&, Random&)> apply;
};
/// One of each kind.
const std::vector<Damage>& damages();
const Damage& anyDamage(Random& random);

/// An index into the bytes.
std::size_t anywhere(const Bytes& bytes, Random& random);

/// The pages that differ, those that are missing now included.
std::set<std::size_t> changedPages(const Bytes& before, const Bytes& after);
bool disjoint(const std::set<std::size_t>& a, const std::set<std::size_t>& b);

}  // namespace store_test
