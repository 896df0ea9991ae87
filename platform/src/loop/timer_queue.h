/// The timers of the loop, by due time.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

namespace nv {

/// Functions that are due at a time in milliseconds; among those due at one time, the older first.
class TimerQueue {
 public:
  using Function = std::function<void()>;

  /// Adds a timer and returns its number. Numbers grow and are never used again in this process.
  static std::uint64_t nextNumber();
  std::uint64_t add(std::uint64_t due, Function function);
  void remove(std::uint64_t number);
  bool contains(std::uint64_t number) const { return dueOf_.contains(number); }

  std::optional<std::uint64_t> nextDue() const;
  /// Takes the first function that is due at `now` and whose timer is older than number `before`.
  std::optional<Function> takeDue(std::uint64_t now, std::uint64_t before);

 private:
  std::map<std::pair<std::uint64_t, std::uint64_t>, Function> byDue_;  // (due, number)
  std::unordered_map<std::uint64_t, std::uint64_t> dueOf_;             // number -> due
};

}  // namespace nv
