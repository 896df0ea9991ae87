/// The subcommands around undo records.
#pragma once

#include <string>

#include "tools/confctl/read_commands.h"

namespace confctl {

/// The last undo records of a service, newest first.
void showUndoRecords(Client client, const std::string& service);

/// Sends back the command of one of them: the one with the number `text`, or of "last" the
/// newest.
void undoChange(Client client, const std::string& service, const std::string& text);

}  // namespace confctl
