#include "examples/firewall/match.h"

namespace firewall {

bool Match::isEverything() const {
  return interface.empty() && !source && protocol.empty() && special.empty();
}

bool Match::covers(const Match& other) const {
  if (!special.empty()) return false;
  if (!other.special.empty()) return isEverything();
  return (interface.empty() || interface == other.interface) &&
         (!source || (other.source && source->covers(*other.source))) &&
         (protocol.empty() || protocol == other.protocol) &&
         (!ports || (other.ports && ports->covers(*other.ports)));
}

std::string Match::label() const {
  if (isEverything()) return "everything";
  if (!special.empty()) return special;
  std::string text = protocol.empty() ? "all" : protocol;
  if (ports) text += ' ' + ports->text();
  if (source) text += " from " + source->text();
  if (!interface.empty()) text += " on " + interface;
  return text;
}

std::string Match::expression() const {
  if (!special.empty()) return special + ' ';
  std::string text;
  if (!interface.empty()) text += "iifname \"" + interface + "\" ";
  if (source) text += (source->isIpv4 ? "ip saddr " : "ip6 saddr ") + source->text() + ' ';
  if (ports)
    text += protocol + " dport " + ports->text() + ' ';
  else if (protocol == "icmp")
    text += "meta l4proto { icmp, ipv6-icmp } ";
  else if (!protocol.empty())
    text += "meta l4proto " + protocol + ' ';
  return text;
}

}  // namespace firewall
