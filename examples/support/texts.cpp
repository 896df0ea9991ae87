#include "examples/support/texts.h"

#include <algorithm>

namespace examples {
namespace {

constexpr std::size_t kLongestComment = 200;

bool isControl(unsigned char c) { return c < 0x20 || c == 0x7f; }

}  // namespace

std::string shown(std::string_view text) {
  std::string line(text);
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return line;
}

std::string commentFault(std::string_view comment) {
  if (comment.size() > kLongestComment)
    return "a comment has at most " + std::to_string(kLongestComment) + " bytes, this one has " +
           std::to_string(comment.size());
  if (std::any_of(comment.begin(), comment.end(), isControl))
    return "a comment is one line without control characters";
  return "";
}

}  // namespace examples
