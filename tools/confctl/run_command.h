/// The subcommand that runs a script.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/confctl/read_commands.h"

namespace confctl {

struct RunOptions {
  std::vector<std::string> words;     ///< the script, unless there is a source; its arguments
  std::optional<std::string> source;  ///< of a script that nobody keeps
};

/// Runs a script that the service keeps, by id or name, or one that the request brings along; shows
/// what it wrote and its exit status. Throws a Failure when that is not 0.
void runScript(Client client, const std::string& service, const RunOptions& options);

}  // namespace confctl
