/// The rules that come from the program.
#pragma once

#include <memory>
#include <vector>

#include "examples/firewall/rule.h"

namespace firewall {

/// Their ids are 1 to this. The ids behind belong to users' rules, which would stay away if the
/// program took one: a further rule of the program gets an id above `Firewall::kHighestId`.
inline constexpr std::uint32_t kProgramRules = 4;

/// New ones, in their order, which is that of their ids.
std::vector<std::unique_ptr<Rule>> makeProgramRules();

}  // namespace firewall
