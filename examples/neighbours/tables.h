/// The kernel's tables of neighbours and connections, as text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/message.h"

namespace neighbours {

/// Files in /proc/net, in the order in which they are read.
inline constexpr const char* kTables[] = {"arp", "tcp", "tcp6", "udp", "udp6"};

/// The record of one line of such a file; none for its head and for a line that makes no sense.
std::optional<nv::message> recordOf(std::string_view table, const std::string& line);

}  // namespace neighbours
