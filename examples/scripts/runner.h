/// Running scripts for those who ask for it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "examples/scripts/child.h"
#include "platform/handler.h"
#include "platform/message.h"

namespace scripts {

/// What is run, whoever asks for it.
struct Script {
  std::string label;  ///< how texts call it: script "greet"
  std::string source;
  unsigned timeLimit = 0;   ///< milliseconds
  std::uint32_t needs = 0;  ///< rights that the request must have, all of them
};

/// Whether a requester with `rights` has all of `needed`. The system has all.
bool covers(std::uint32_t rights, std::uint32_t needed);

/// Runs scripts with the shell, as the user of this process, and answers the requests.
///
/// A script gets the arguments of the request as its words, and in its environment no more than
/// PATH, the bus (CONFKIT_BUS, when this process has it), the rights of the request
/// (CONFKIT_RIGHTS, which confctl asks with) and who set the script (CONFKIT_ORIGIN).
class Runner {
 public:
  /// Scripts that run at one time. The next is refused.
  static constexpr std::size_t kMostRuns = 16;
  /// Bytes of output that a script may write.
  static constexpr std::size_t kOutputLimit = 64 * 1024;

  /// Answers `request` as `handler`: with nv::run_key::output and, when the script ended by itself,
  /// nv::run_key::status. An error when it may not run (err::notAllowed), when too many run
  /// (err::tooMany), when an argument is none or the script was killed (err::failed, with the
  /// output so far). `handler` is there as long as the loop runs.
  void run(nv::Handler& handler, const nv::message& request, const Script& script);

  std::size_t running() const { return children_.size(); }

 private:
  /// Why it cannot run; empty when it can.
  nv::message refusal(const nv::message& request, const Script& script) const;

  std::map<std::uint64_t, std::unique_ptr<Child>> children_;
  std::uint64_t lastRun_ = 0;
};

}  // namespace scripts
