/// Texts that people give to services.
#pragma once

#include <string>
#include <string_view>

namespace examples {

/// Whether `c` is one of ASCII, whatever the locale: what a name is does not depend on it.
bool isLetterOrDigit(char c);

/// `text` as it can stand in a line: what is not printable ASCII as '?'.
std::string shown(std::string_view text);

/// Why `name` cannot be that of a network interface; empty when it can: up to 15 letters, digits,
/// '-', '_' and '.', a letter or digit first.
std::string interfaceNameFault(std::string_view name);

/// Why this is no line for people; empty when it is one, as a comment is. `what` it is called
/// begins the text: "a comment".
std::string lineFault(const std::string& what, std::string_view line);

/// Why this is no comment; empty when it is one: a line of at most 200 bytes. Comments end up in
/// files of lines, where a line end would begin something else.
std::string commentFault(std::string_view comment);

}  // namespace examples
