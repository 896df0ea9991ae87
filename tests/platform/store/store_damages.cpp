#include "tests/platform/store/store_damages.h"

#include <algorithm>

namespace store_test {

std::size_t anywhere(const Bytes& bytes, Random& random) {
  return random.below(static_cast<unsigned>(bytes.size()));
}

namespace {

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

}  // namespace

const std::vector<Damage>& damages() { return kDamages; }

const Damage& anyDamage(Random& random) {
  return kDamages[random.below(static_cast<unsigned>(kDamages.size()))];
}

std::set<std::size_t> changedPages(const Bytes& before, const Bytes& after) {
  std::set<std::size_t> pages;
  for (std::size_t i = 0; i < before.size(); ++i)
    if (i >= after.size() || before[i] != after[i]) pages.insert(i / kPage);
  return pages;
}

bool disjoint(const std::set<std::size_t>& a, const std::set<std::size_t>& b) {
  return std::none_of(a.begin(), a.end(), [&](std::size_t page) { return b.contains(page); });
}

}  // namespace store_test
