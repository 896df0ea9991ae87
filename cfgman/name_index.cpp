#include "cfgman/name_index.h"

#include <algorithm>
#include <charconv>

#include "cfgman/item.h"
#include "cfgman/iterator.h"

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Adds one to the decimal number at the end of `name`. The carry runs on into the prefix when that
/// ends with digits; when it leaves a 0 where the number begins, the number has one more digit.
void increment(std::string& name, std::size_t prefixLength) {
  for (auto at = name.size(); at-- > 0 && isDigit(name[at]);) {
    if (name[at] != '9') {
      ++name[at];
      break;
    }
    name[at] = '0';
  }
  if (name[prefixLength] == '0') name.insert(prefixLength, 1, '1');
}

/// The number that is written so, if it has nine digits at most.
std::optional<std::uint32_t> plainNumber(std::string_view digits) {
  std::uint32_t number = 0;
  if (digits.size() > 9 || digits.front() == '0') return {};
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return number;
}

}  // namespace

bool NameIndex::ByLength::operator()(std::string_view a, std::string_view b) const {
  return a.size() != b.size() ? a.size() < b.size() : a < b;
}

std::string_view NameIndex::digitsOf(const CfgMan::Item& item, std::string_view name) const {
  if (!prefix_ || (manager_.ordered && item.ord == nullptr)) return {};
  if (!name.starts_with(*prefix_)) return {};
  const auto digits = name.substr(prefix_->size());
  return std::all_of(digits.begin(), digits.end(), isDigit) ? digits : std::string_view();
}

void NameIndex::add(const CfgMan::Item& item) {
  const auto digits = digitsOf(item, item.config.view(nv::key::name));
  if (digits.empty()) return;
  const auto number = plainNumber(digits);
  if (!number)
    others_.emplace(digits);
  else if (numbers_.isAllocated(*number))
    ++repeats_[*number];
  else
    numbers_.allocate(*number);
}

void NameIndex::remove(const CfgMan::Item& item) {
  take(digitsOf(item, item.config.view(nv::key::name)));
}

NameIndex::Noted NameIndex::note(const CfgMan::Item& item) const {
  return {item.config.get(nv::key::name), builds_};
}

void NameIndex::renamed(const CfgMan::Item& item, const Noted& before) {
  if (item.config.view(nv::key::name) == before.name) return;
  // One that was built meanwhile may hold the earlier name or the later one.
  if (builds_ != before.builds) return forget();
  take(digitsOf(item, before.name));
  add(item);
}

void NameIndex::take(std::string_view digits) {
  if (digits.empty()) return;
  const auto number = plainNumber(digits);
  if (!number) {
    if (const auto one = others_.find(std::string(digits)); one != others_.end())
      others_.erase(one);
  } else if (const auto repeated = repeats_.find(*number); repeated != repeats_.end()) {
    if (--repeated->second == 0) repeats_.erase(repeated);
  } else {
    numbers_.free(*number);
  }
}

void NameIndex::build() {
  ++builds_;
  prefix_ = manager_.namePrefix;
  numbers_ = nv::Allocator(0, nv::kNoId);
  repeats_.clear();
  others_.clear();
  for (auto it = manager_.begin(); it.item() != nullptr; it.next()) add(*it.item());
}

std::string NameIndex::highest() const {
  auto number = numbers_.used() == 0 ? "0" : std::to_string(numbers_.highest());
  if (others_.empty() || ByLength()(*others_.rbegin(), number)) return number;
  return *others_.rbegin();
}

std::string NameIndex::nextName() {
  if (prefix_ != manager_.namePrefix) build();
  std::string name = *prefix_ + highest();
  increment(name, prefix_->size());
  return name;
}
