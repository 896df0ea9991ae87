#include "examples/firewall/ports.h"

#include <charconv>

namespace firewall {
namespace {

constexpr unsigned kHighestPort = 65535;

unsigned readPort(std::string_view text) {
  unsigned port = 0;
  const auto [end, error] = std::from_chars(text.begin(), text.end(), port);
  return error == std::errc() && end == text.end() && port <= kHighestPort ? port : 0;
}

}  // namespace

std::string Ports::text() const {
  return std::to_string(first) + (last == first ? "" : '-' + std::to_string(last));
}

std::optional<Ports> readPorts(std::string_view text) {
  const auto dash = text.find('-');
  const unsigned first = readPort(text.substr(0, dash));
  const unsigned last = dash == text.npos ? first : readPort(text.substr(dash + 1));
  if (first == 0 || last < first) return {};
  return Ports{first, last};
}

}  // namespace firewall
