#include "examples/firewall/ruleset.h"

namespace firewall {

const char* const kRulesetHead =
    "# Written by the firewall service. Changes made here are lost.\n"
    "table inet confkit\n"
    "delete table inet confkit\n"
    "table inet confkit {\n"
    "  chain input {\n"
    "    type filter hook input priority filter; policy drop;\n";

const char* const kRulesetEnd = "  }\n}\n";

std::string rulesetLines(const Rule& rule) {
  if (rule.texts.disabled) return "";
  const auto& comment = rule.texts.comment;
  // Something stands behind the comment: a backslash at its end would swallow the next line.
  return "    # " + comment + (comment.empty() ? "" : " ") + "(rule " + std::to_string(rule.id) +
         ")\n    " + rule.match.expression() + rule.texts.action + '\n';
}

}  // namespace firewall
