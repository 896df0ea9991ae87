/// A line that tells how far a long list has come.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>

namespace confctl {

/// Writes the line to a terminal, below what was written to it last, when a list takes longer than
/// `kPatience`. On anything but a terminal it writes nothing.
class Progress {
 public:
  /// Milliseconds.
  static constexpr std::uint64_t kPatience = 1000;

  /// `now`: milliseconds on a clock that never goes back.
  Progress(std::ostream& terminal, bool isTerminal, std::function<std::uint64_t()> now);
  /// Takes the line away.
  ~Progress() { hide(); }
  Progress(const Progress&) = delete;

  /// To be called before anything else is written, which may go to the same terminal.
  void hide();
  void show(std::size_t objects);

 private:
  std::ostream& out_;
  const bool isTerminal_;
  std::function<std::uint64_t()> now_;
  const std::uint64_t begin_;
  bool isShown_ = false;
};

}  // namespace confctl
