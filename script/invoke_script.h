/// A script that a user attaches to a configuration object.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/export.h"
#include "platform/flat_message.h"
#include "platform/keys.h"
#include "platform/message.h"
#include "platform/post.h"

namespace nv {

/// Which script to run when something happens, with which fixed arguments, and under whose rights.
/// A value that a configuration object embeds: it reads and writes a configuration message of its
/// own, guards who may change it, and sends the run request to the script service.
///
/// | key | type          | field    | written when                       |
/// |-----|---------------|----------|------------------------------------|
/// | 1   | u32           | `id`     | by id                              |
/// | 2   | u32           | `rights` | there is a script                  |
/// | 3   | string        | `origin` | there is a script                  |
/// | 4   | string        | `source` | by source                          |
/// | 5   | message array | `args`   | there is a script with arguments   |
class CONFKIT_API InvokeScript {
 public:
  enum Kind : std::uint32_t { kNone, kById, kBySource };
  /// How long `post` waits for the script service, in milliseconds.
  static constexpr std::uint32_t kAnswerTimeout = 6000;

  /// Back to no script, without rights.
  void clear();
  /// Takes everything from a configuration message, as `toCfg` made it. Key 1 comes before key 4;
  /// with neither there is no script, and nothing else is read.
  void fromStore(const message& cfg);
  /// The configuration message; empty when there is no script.
  message toCfg() const;

  /// Applies what a client wants. Refused, with false and nothing changed, when `cfg` names a
  /// script both by id and by source (err::badCommand), when it speaks of rights or origin, and
  /// when a source script is involved whose rights go beyond `callerRights` (both
  /// err::scriptRights). The error is written to `*reply` unless that is an empty message or
  /// `reply` is null.
  ///
  /// A script by id runs with the rights and the name of whoever set it last. One by source keeps
  /// the rights and the origin that were there, so nobody gains rights by editing it; a new one has
  /// none.
  bool update(const message& cfg, std::uint32_t callerRights, const std::string& callerName,
              message* reply);

  /// The request that makes the script service run the script, with `callArgs` before the fixed
  /// arguments; empty when there is no script.
  message runmsg(std::vector<flat_message> callArgs) const;
  /// Sends the run request and awaits no answer. Nothing when there is no script.
  void run(std::vector<flat_message> callArgs) const;
  void run() const { run({}); }
  /// Sends the run request; `done` gets the answer, or err::timedOut after `kAnswerTimeout`.
  /// Without a script `done` gets an empty message before this returns.
  Post post(std::vector<flat_message> callArgs, std::function<void(const message&)> done) const;
  Post post(std::function<void(const message&)> done) const { return post({}, std::move(done)); }

  /// The script's id at the script service.
  std::uint32_t id = kNoId;
  /// Rights that the script runs with, a bit each.
  std::uint32_t rights = 0;
  std::uint32_t kind = kNone;
  /// Who set the script; told with every run.
  std::string origin;
  std::string source;
  /// Fixed arguments, behind those of each call.
  std::vector<flat_message> args;
};

}  // namespace nv
