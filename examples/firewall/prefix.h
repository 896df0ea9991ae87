/// Ranges of addresses that begin with the same bits.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace firewall {

/// An IPv4 or IPv6 address and how many of its bits count.
struct Prefix {
  bool isIpv4 = false;
  std::array<unsigned char, 16> bytes{};  ///< IPv4: the first four
  unsigned length = 0;                    ///< in bits

  /// Whether each address of `other` is in this one.
  bool covers(const Prefix& other) const;
  /// Whether bits that do not count are set.
  bool hasHostBits() const;
  /// `10.0.0.0/8`, `2001:db8::/32`; a single address without its length.
  std::string text() const;
};

/// What such a text says; none when it is not one.
std::optional<Prefix> readPrefix(std::string_view text);

/// Why `text` is no prefix; empty when it is one.
std::string prefixFault(std::string_view text);

}  // namespace firewall
