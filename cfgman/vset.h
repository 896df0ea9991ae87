/// A set kept as a sorted vector: small, quick to walk, quick to unite with another.
#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <utility>
#include <vector>

/// Unique values in ascending order. A look-up is O(log n), an insertion O(n) but at the end O(1),
/// a union linear. Any change ends the validity of iterators.
template <class T>
class vset {
 public:
  using value_type = T;
  using const_iterator = typename std::vector<T>::const_iterator;
  using iterator = const_iterator;

  vset() = default;
  vset(std::initializer_list<T> values) : values_(values) {
    std::sort(values_.begin(), values_.end());
    values_.erase(std::unique(values_.begin(), values_.end()), values_.end());
  }

  /// Whether `value` was absent before.
  bool insert(const T& value) {
    if (values_.empty() || values_.back() < value) return values_.push_back(value), true;
    const auto at = std::lower_bound(values_.begin(), values_.end(), value);
    if (*at == value) return false;
    return values_.insert(at, value), true;
  }
  /// Whether `value` was there before.
  bool erase(const T& value) {
    const auto at = std::lower_bound(values_.begin(), values_.end(), value);
    if (at == values_.end() || *at != value) return false;
    return values_.erase(at), true;
  }
  /// Adds every value of `other`.
  void merge(const vset& other) {
    if (other.empty()) return;
    if (empty()) {
      values_ = other.values_;
      return;
    }
    std::vector<T> both;
    both.reserve(size() + other.size());
    std::set_union(begin(), end(), other.begin(), other.end(), std::back_inserter(both));
    values_ = std::move(both);
  }
  void reserve(std::size_t count) { values_.reserve(count); }
  void clear() { values_.clear(); }

  bool has(const T& value) const { return std::binary_search(begin(), end(), value); }
  bool empty() const { return values_.empty(); }
  std::size_t size() const { return values_.size(); }
  const_iterator begin() const { return values_.begin(); }
  const_iterator end() const { return values_.end(); }

  friend bool operator==(const vset&, const vset&) = default;

 private:
  std::vector<T> values_;
};
