#include "examples/firewall/program_rules.h"

#include <iterator>

namespace firewall {
namespace {

struct Given {
  const char* comment;
  const char* special;
  const char* interface;
  const char* protocol;
  const char* ports;
};

constexpr Given kGiven[] = {
    {"answers to this device", "ct state established,related", "", "", ""},
    {"neighbours, without which IPv6 does not work",
     "icmpv6 type { nd-neighbor-solicit, nd-neighbor-advert, nd-router-advert }", "", "", ""},
    {"programs of this device", "", "lo", "", ""},
    {"its administration", "", "", "tcp", "22"}};
static_assert(std::size(kGiven) == kProgramRules);

}  // namespace

std::vector<std::unique_ptr<Rule>> makeProgramRules() {
  std::vector<std::unique_ptr<Rule>> rules;
  for (const auto& given : kGiven) {
    auto rule = std::make_unique<Rule>();
    rule->id = static_cast<std::uint32_t>(rules.size() + 1);
    rule->isOfProgram = true;
    rule->setConfig({{kAction, "accept"},
                     {kInterface, given.interface},
                     {kProtocol, given.protocol},
                     {kPorts, given.ports},
                     {kComment, given.comment}},
                    nv::kDefaultFlags);
    rule->match.special = given.special;
    rules.push_back(std::move(rule));
  }
  return rules;
}

}  // namespace firewall
