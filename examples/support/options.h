/// What the main functions of services make of their options.
#pragma once

#include <string>

namespace examples {

/// Ends the process with a line that says why.
[[noreturn]] void refuseToStart(const std::string& service, const std::string& why);

/// What "yes" or "no" stands for; anything else refuses to start.
bool yesOrNo(const std::string& service, const std::string& option, const std::string& text);

}  // namespace examples
