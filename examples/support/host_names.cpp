#include "examples/support/host_names.h"

#include <algorithm>

#include "examples/support/texts.h"

namespace examples {
namespace {

constexpr std::size_t kLongestName = 253;
constexpr std::size_t kLongestLabel = 63;

// Not the functions of the C library: what a name is does not depend on the locale.
bool isDigit(char c) { return c >= '0' && c <= '9'; }
char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool isNameCharacter(char c) { return isLetterOrDigit(c) || c == '-'; }

std::string labelFault(std::string_view label) {
  if (label.empty()) return "a label is empty";
  if (label.size() > kLongestLabel) return "a label is longer than 63 characters";
  if (!std::all_of(label.begin(), label.end(), isNameCharacter))
    return "it may hold letters, digits, '-' and '.' only";
  if (label.front() == '-' || label.back() == '-') return "a label begins or ends with '-'";
  return "";
}

std::string labelsFault(std::string_view name) {
  for (;;) {
    const auto dot = name.find('.');
    const auto label = name.substr(0, dot);
    if (auto why = labelFault(label); !why.empty()) return why;
    if (dot != name.npos) {
      name.remove_prefix(dot + 1);
      continue;
    }
    return std::all_of(label.begin(), label.end(), isDigit) ? "its last label is a number" : "";
  }
}

}  // namespace

std::string hostNameFault(std::string_view name) {
  if (name.empty()) return "a host needs a name";
  if (name.size() > kLongestName)
    return "a host name has at most 253 characters, this one has " + std::to_string(name.size());
  const auto why = labelsFault(name);
  return why.empty() ? "" : "\"" + shown(name) + "\" is no host name: " + why;
}

std::string nameKey(std::string_view name) {
  std::string key(name);
  std::transform(key.begin(), key.end(), key.begin(), lower);
  return key;
}

}  // namespace examples
