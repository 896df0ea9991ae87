/// Ranges of ports.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace firewall {

struct Ports {
  unsigned first = 0, last = 0;  ///< 1 to 65535

  bool covers(const Ports& other) const { return first <= other.first && other.last <= last; }
  /// `22`, `8000-8080`
  std::string text() const;
};

/// What such a text says; none when it is not one.
std::optional<Ports> readPorts(std::string_view text);

}  // namespace firewall
