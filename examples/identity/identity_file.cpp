#include "examples/identity/identity_file.h"

#include <string_view>

namespace identity {
namespace {

constexpr std::array kWords{"HOST_NAME", "LOCATION", "TIME_ZONE", "CONTACT"};
static_assert(kWords.size() == kFields.size());

/// What a shell would do something with gets a backslash.
std::string inQuotes(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    if (std::string_view("\"\\$`").find(c) != std::string_view::npos) out += '\\';
    out += c;
  }
  return out + '"';
}

}  // namespace

std::string identityText(const Values& values) {
  std::string text = "# Written by the identity service. Changes made here are lost.\n";
  for (std::size_t k = 0; k < values.size(); ++k)
    text += std::string(kWords[k]) + '=' + inQuotes(values[k]) + '\n';
  return text;
}

}  // namespace identity
