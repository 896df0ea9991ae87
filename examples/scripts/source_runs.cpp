#include "examples/scripts/source_runs.h"

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/keys.h"
#include "platform/run_request.h"

namespace scripts {

SourceRuns::SourceRuns(Runner& runner) : runner_(runner) { describe("script-runs", {}); }

void SourceRuns::handleCmd(const nv::message& cmd, unsigned code) {
  if (code != nv::cmd::runScript) return Handler::handleCmd(cmd, code);
  const auto source = cmd.get(nv::run_key::source);
  const auto refuse = [&](const char* why) {
    replyMessage(cmd, nv::errorMsg(nv::err::badCommand, why));
  };
  if (source.empty()) return refuse("a run needs a source");
  if (source.find('\0') != std::string::npos) return refuse("a script holds no zero byte");
  runner_.run(*this, cmd, {"the script", source, kTimeLimit, nv::kSystemRights});
}

}  // namespace scripts
