/// The rules that come from the program.
#pragma once

#include <memory>
#include <vector>

#include "examples/firewall/rule.h"

namespace firewall {

/// Their ids are 1 to this; a new one goes last.
inline constexpr std::uint32_t kProgramRules = 4;

/// New ones, in their order, which is that of their ids.
std::vector<std::unique_ptr<Rule>> makeProgramRules();

}  // namespace firewall
