#include "cfgman/name_index.h"

#include <algorithm>
#include <tuple>

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

}  // namespace

bool NameIndex::Entry::operator<(const Entry& other) const {
  return std::tuple(digits.size(), std::string_view(digits), id) <
         std::tuple(other.digits.size(), std::string_view(other.digits), other.id);
}

std::optional<NameIndex::Entry> NameIndex::entryOf(const CfgMan::Item& item) const {
  if (!prefix_ || (manager_.ordered && item.ord == nullptr)) return {};
  const auto name = item.config.view(nv::key::name);
  if (name.size() <= prefix_->size() || !name.starts_with(*prefix_)) return {};
  const auto digits = name.substr(prefix_->size());
  if (!std::all_of(digits.begin(), digits.end(), isDigit)) return {};
  return Entry{std::string(digits), item.id};
}

void NameIndex::add(const CfgMan::Item& item) {
  if (auto entry = entryOf(item)) entries_.insert(std::move(*entry));
}

void NameIndex::remove(const CfgMan::Item& item) {
  if (const auto entry = entryOf(item)) entries_.erase(*entry);
}

void NameIndex::build() {
  prefix_ = manager_.namePrefix;
  entries_.clear();
  for (auto it = manager_.begin(); it.item() != nullptr; it.next()) add(*it.item());
}

// A service may have changed an item behind the manager's back.
bool NameIndex::isTrue(const Entry& entry) const {
  const auto* const item = manager_.find(entry.id);
  const auto now = item ? entryOf(*item) : std::nullopt;
  return now && now->digits == entry.digits;
}

std::string NameIndex::nextName() {
  if (prefix_ != manager_.namePrefix) build();
  while (!entries_.empty() && !isTrue(*entries_.rbegin()))
    entries_.erase(std::prev(entries_.end()));
  std::string name = *prefix_ + (entries_.empty() ? "0" : entries_.rbegin()->digits);
  increment(name, prefix_->size());
  return name;
}
