#include "examples/firewall/rule.h"

#include "examples/support/take.h"
#include "examples/support/texts.h"
#include "platform/keys.h"

namespace firewall {
namespace {

std::string actionFault(const std::string& action) {
  if (action == "accept" || action == "drop" || action == "reject") return "";
  if (action.empty()) return "a rule needs an action: accept, drop or reject";
  return '"' + examples::shown(action) + "\" is no action: accept, drop and reject are";
}

std::string protocolFault(const std::string& protocol) {
  if (protocol.empty() || protocol == "tcp" || protocol == "udp" || protocol == "icmp") return "";
  return '"' + examples::shown(protocol) + "\" is no protocol: tcp, udp and icmp are";
}

std::string portsFault(const std::string& protocol, const std::string& ports) {
  if (ports.empty()) return "";
  if (!readPorts(ports))
    return '"' + examples::shown(ports) + "\" are no ports: 22 and 8000-8080 are, up to 65535";
  return protocol == "tcp" || protocol == "udp" ? "" : "only tcp and udp have ports";
}

Match matchOf(const RuleTexts& texts) {
  return {.interface = texts.interface,
          .source = readPrefix(texts.source),
          .protocol = texts.protocol,
          .ports = readPorts(texts.ports)};
}

}  // namespace

std::vector<nv::KeyInfo> dictionary() {
  return {{kAction.uid(), "action", "accept, drop or reject"},
          {kInterface.uid(), "interface", "by which a packet comes"},
          {kSource.uid(), "source", "from where: 192.0.2.7, 10.0.0.0/8, 2001:db8::/32"},
          {kProtocol.uid(), "protocol", "tcp, udp or icmp"},
          {kPorts.uid(), "ports", "to which, with tcp and udp: 22, 8000-8080"},
          {kComment.uid(), "comment", "a line for people"},
          {kDisabled.uid(), "disabled", "kept, but not part of the filter"},
          {kProgram.uid(), "program", "it comes from the program (not configured)"},
          {kBehind.uid(), "behind", "the program's rule before it (stored only)"}};
}

std::string RuleTexts::fault() const {
  for (auto why :
       {actionFault(action),                                               //
        interface.empty() ? "" : examples::interfaceNameFault(interface),  //
        source.empty() ? "" : prefixFault(source),                         //
        protocolFault(protocol), portsFault(protocol, ports), examples::commentFault(comment)})
    if (!why.empty()) return why;
  return "";
}

void Rule::getConfig(nv::message& out, std::uint32_t flags) {
  out.insert(kAction, texts.action).insert(kInterface, texts.interface);
  out.insert(kSource, texts.source).insert(kProtocol, texts.protocol);
  out.insert(kPorts, texts.ports).insert(kComment, texts.comment);
  out.insert(kDisabled, texts.disabled);
  if ((flags & nv::kStoreBit) != 0)
    out.insert(kBehind, behind);
  else if (isOfProgram)
    out.insert(kProgram, true);
}

void Rule::setConfig(const nv::message& in, std::uint32_t flags) {
  examples::take(in, kAction, texts.action);
  examples::take(in, kInterface, texts.interface);
  examples::take(in, kSource, texts.source);
  examples::take(in, kProtocol, texts.protocol);
  examples::take(in, kPorts, texts.ports);
  examples::take(in, kComment, texts.comment);
  examples::take(in, kDisabled, texts.disabled);
  if ((flags & nv::kStoreBit) != 0) behind = in.get(kBehind);
  match = matchOf(texts);
}

std::string Rule::label() const { return texts.action + ' ' + match.label(); }

bool Rule::covers(const Rule& other) const {
  return !texts.disabled && !other.texts.disabled && match.covers(other.match);
}

}  // namespace firewall
