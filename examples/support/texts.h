/// Texts that people give to services.
#pragma once

#include <string>
#include <string_view>

namespace examples {

/// `text` as it can stand in a line: what is not printable ASCII as '?'.
std::string shown(std::string_view text);

/// Why this is no comment; empty when it is one: a line of at most 200 bytes. Comments end up in
/// files of lines, where a line end would begin something else.
std::string commentFault(std::string_view comment);

}  // namespace examples
