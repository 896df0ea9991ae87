/// A network of a process alone, and the programs with which it is set up.
#pragma once

#include <string>

namespace examples {

/// Moves this process into a network namespace of its own, which goes with it: nothing that it does
/// there touches the machine. Empty, or why not; that mostly needs root.
std::string enterOwnNetwork();

/// Runs a command of the shell and waits for its end. Empty when it did what it should, or the
/// command and the first line in which it said why not.
std::string complaintOf(const std::string& command);

/// `text` as one word of a shell.
std::string shellWord(const std::string& text);

}  // namespace examples
