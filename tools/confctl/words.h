/// Texts as people see and type them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace confctl {

/// Takes the first character off `text`; none, and one byte taken, when it does not begin with a
/// character in UTF-8. Requires: `text` is not empty.
std::optional<char32_t> takeCharacter(std::string_view& text);

bool isUtf8(std::string_view text);
/// Whether `text` can be shown as it stands: UTF-8 without control characters.
bool isPlain(std::string_view text);

/// `text` with everything that is not plain as `\xNN`: what others wrote cannot steer the terminal.
std::string printable(std::string_view text);

/// The same of a text of many lines: line ends and tabs stay.
std::string printableLines(std::string_view text);

/// `text` as one word of a shell's command line, quoted only when it must be.
std::string shellWord(std::string_view text);

/// `number` as "0x...".
std::string hex(unsigned number);

}  // namespace confctl
