/// The command line of confctl.
#pragma once

#include <functional>
#include <string>

#include "tools/confctl/change_commands.h"
#include "tools/confctl/watch.h"

namespace confctl {

/// What the command line asks for.
struct CommandLine {
  BusOptions bus;
  bool json = false;
  std::function<void(Client)> run;  ///< the subcommand
};

/// Throws a Failure when it cannot be understood. None: help was asked for and has been printed.
std::optional<CommandLine> readCommandLine(int argc, char** argv);

}  // namespace confctl
