#include "tools/confctl/words.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace confctl {
namespace {

/// How many bytes a character has that begins with `first`; 0 when none begins so.
std::size_t lengthFrom(unsigned char first) {
  if (first < 0x80) return 1;
  if (first >= 0xc2 && first < 0xe0) return 2;
  if (first >= 0xe0 && first < 0xf0) return 3;
  if (first >= 0xf0 && first < 0xf5) return 4;
  return 0;
}

bool isCharacter(char32_t c, std::size_t length) {
  constexpr char32_t lowest[] = {0, 0, 0x80, 0x800, 0x10000};
  return c >= lowest[length] && c <= 0x10ffff && !(c >= 0xd800 && c <= 0xdfff);
}

/// Control characters, those that turn the writing direction included.
bool isControl(char32_t c) {
  return c < 0x20 || (c >= 0x7f && c < 0xa0) || (c >= 0x202a && c <= 0x202e) ||
         (c >= 0x2066 && c <= 0x2069);
}

void appendEscaped(std::string& out, std::string_view bytes) {
  for (const char byte : bytes) {
    std::array<char, 5> escaped{};
    std::snprintf(escaped.data(), escaped.size(), "\\x%02x",
                  static_cast<unsigned>(static_cast<unsigned char>(byte)));
    out += escaped.data();
  }
}

bool isSafeInShell(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("_@%+=:,./-").find(c) != std::string_view::npos;
}

}  // namespace

std::optional<char32_t> takeCharacter(std::string_view& text) {
  const auto byteAt = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const std::size_t length = lengthFrom(byteAt(0));
  char32_t c = byteAt(0) & (length < 2 ? 0x7fu : 0xffu >> (length + 1));
  std::size_t taken = 1;
  while (taken < length && taken < text.size() && (byteAt(taken) & 0xc0u) == 0x80u) {
    c = (c << 6) | (byteAt(taken++) & 0x3fu);
  }
  const bool good = taken == length && isCharacter(c, length);
  text.remove_prefix(good ? length : 1);
  return good ? std::optional(c) : std::nullopt;
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    if (!takeCharacter(text)) return false;
  }
  return true;
}

bool isPlain(std::string_view text) {
  while (!text.empty()) {
    const auto c = takeCharacter(text);
    if (!c || isControl(*c)) return false;
  }
  return true;
}

std::string printable(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const std::string_view before = text;
    const auto c = takeCharacter(text);
    const std::string_view bytes = before.substr(0, before.size() - text.size());
    if (c && !isControl(*c)) {
      out += bytes;
    } else {
      appendEscaped(out, bytes);
    }
  }
  return out;
}

std::string printableLines(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const auto end = std::min(text.find_first_of("\n\t"), text.size());
    out += printable(text.substr(0, end));
    if (end < text.size()) out += text[end];
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return out;
}

std::string shellWord(std::string_view text) {
  if (!text.empty() && std::ranges::all_of(text, isSafeInShell)) return std::string(text);
  std::string word = "'";
  for (const char c : text) {
    if (c == '\'') {
      word += "'\\''";
    } else {
      word += c;
    }
  }
  return word + "'";
}

std::string hex(unsigned number) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%x", number);
  return text.data();
}

}  // namespace confctl
