/// A program that runs beside the loop.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "examples/scripts/descriptor.h"
#include "platform/fd_watch.h"
#include "platform/timer.h"

namespace scripts {

struct Program {
  std::vector<std::string> words;        ///< the file of the program first; none with a zero byte
  std::vector<std::string> environment;  ///< all of it, NAME=VALUE
  unsigned timeLimit = 0;                ///< milliseconds
  std::size_t outputLimit = 0;           ///< bytes
};

/// What came of it.
struct Outcome {
  std::string output;           ///< standard output and error, at most `outputLimit` bytes
  std::optional<int> status{};  ///< with which it ended by itself
  std::string cut{};            ///< "it ran longer than 3000 ms" and the like; empty: it ended
};

/// Runs a program with nothing to read, none of this process's descriptors, default signals, and
/// a process group of its own. When it ends, runs too long or writes too much, everything that is
/// still in that group is killed, so nothing is left behind but what has left the group on purpose.
///
/// The loop is not kept waiting: the output is taken a piece a pass. Destruction kills the group,
/// and `done` is not called then.
class Child {
 public:
  using Done = std::function<void(Outcome)>;

  /// Null, with a line in `fault`, when the program cannot be started. `done` is called once, from
  /// the loop, and may destroy the Child.
  static std::unique_ptr<Child> start(const Program& program, Done done, std::string& fault);
  ~Child();
  Child(const Child&) = delete;

 private:
  Child(const Program& program, pid_t pid, Descriptor process, Descriptor output, Done done);
  bool watch();
  /// Takes what there is, at most `pieces` pieces of it; false when nothing will follow.
  bool takeOutput(unsigned pieces);
  void outputCame();
  void cut(std::string why);
  void ended();
  void killGroup() const;

  const unsigned timeLimit_;
  const std::size_t outputLimit_;
  pid_t pid_;           // 0: has been awaited
  Descriptor process_;  // readable when it has ended
  Descriptor output_;
  Outcome outcome_;
  Done done_;
  nv::FdWatch processWatch_, outputWatch_;
  nv::Timer limit_;
};

}  // namespace scripts
