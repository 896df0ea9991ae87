/// Running scripts that nobody keeps.
#pragma once

#include "examples/scripts/runner.h"
#include "platform/handler.h"

namespace scripts {

/// Answers cmd::runScript with a source in the request. It can do what the user of this process
/// can, so only a request with the rights of the system is run; the others are refused with
/// err::notAllowed.
class SourceRuns : public nv::Handler {
 public:
  static constexpr unsigned kTimeLimit = 3000;  // ms

  /// `runner` outlives this.
  explicit SourceRuns(Runner& runner);
  void handleCmd(const nv::message& cmd, unsigned code) override;

 private:
  Runner& runner_;
};

}  // namespace scripts
