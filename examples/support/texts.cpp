#include "examples/support/texts.h"

#include <algorithm>

namespace examples {
namespace {

constexpr std::size_t kLongestLine = 200;
constexpr std::size_t kLongestInterfaceName = 15;  // the kernel's

bool isNameCharacter(char c) { return isLetterOrDigit(c) || c == '-' || c == '_' || c == '.'; }

bool isControl(unsigned char c) { return c < 0x20 || c == 0x7f; }

}  // namespace

bool isLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

std::string shown(std::string_view text) {
  std::string line(text);
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return line;
}

std::string interfaceNameFault(std::string_view name) {
  const auto quoted = '"' + shown(name) + '"';
  if (name.empty()) return "an interface needs a name";
  if (name.size() > kLongestInterfaceName)
    return quoted + " is no interface name: it has more than 15 characters";
  if (!std::all_of(name.begin(), name.end(), isNameCharacter))
    return quoted + " is no interface name: it may hold letters, digits, '-', '_' and '.' only";
  if (!isLetterOrDigit(name.front()))
    return quoted + " is no interface name: it begins with neither a letter nor a digit";
  return "";
}

std::string lineFault(const std::string& what, std::string_view line) {
  if (line.size() > kLongestLine)
    return what + " has at most " + std::to_string(kLongestLine) + " bytes, this one has " +
           std::to_string(line.size());
  if (std::any_of(line.begin(), line.end(), isControl))
    return what + " is one line without control characters";
  return "";
}

std::string commentFault(std::string_view comment) { return lineFault("a comment", comment); }

}  // namespace examples
