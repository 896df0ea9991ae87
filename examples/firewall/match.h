/// Which packets a rule is about.
#pragma once

#include <optional>
#include <string>

#include "examples/firewall/ports.h"
#include "examples/firewall/prefix.h"

namespace firewall {

/// All that is given must hold. Made of texts that have been checked.
struct Match {
  std::string interface;         ///< by which a packet comes; empty: any
  std::optional<Prefix> source;  ///< from where
  std::string protocol;          ///< "tcp", "udp", "icmp" (of both families); empty: any
  std::optional<Ports> ports;    ///< to which; with tcp and udp only
  /// What only the program matches, as it stands in a ruleset; empty in other rules.
  std::string special = {};

  /// Whether it matches each packet that `other` matches. What is special covers nothing.
  bool covers(const Match& other) const;
  bool isEverything() const;
  /// `tcp 22 from 10.0.0.0/8 on eth0`
  std::string label() const;
  /// As it stands in a ruleset of nftables before the verdict, a blank behind it.
  std::string expression() const;
};

}  // namespace firewall
