/// The file through which nftables learns of rules.
#pragma once

#include <string>

#include "examples/firewall/rule.h"

namespace firewall {

/// What stands before all rules, and behind them. Loaded, the file takes the place of what an
/// earlier one said, in one step; what no rule matches is dropped.
extern const char* const kRulesetHead;
extern const char* const kRulesetEnd;

/// The lines of one rule, which must be without fault; none for a disabled one.
std::string rulesetLines(const Rule& rule);

}  // namespace firewall
