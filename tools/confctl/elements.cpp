#include "tools/confctl/elements.h"

#include <algorithm>
#include <array>
#include <charconv>

#include <arpa/inet.h>

#include "tools/confctl/words.h"

namespace confctl {
namespace {

/// What stands before an IPv4 address in an IPv4-mapped one.
constexpr std::array<unsigned char, 12> kMapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};

[[noreturn]] void refuse(std::string_view text, std::string_view expected) {
  throw BadValue("'" + printable(text) + "' is not " + std::string(expected));
}

std::optional<unsigned char> readByte(std::string_view digits) {
  unsigned char byte = 0;
  const char* end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, byte, 16);
  return result.ptr == end && result.ec == std::errc() ? std::optional(byte) : std::nullopt;
}

}  // namespace

std::optional<std::uint64_t> readNumber(std::string_view text, std::uint64_t max) {
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  if (isHex) text.remove_prefix(2);
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number, isHex ? 16 : 10);
  if (text.empty() || result.ptr != end || result.ec != std::errc() || number > max) return {};
  return number;
}

void fromText(std::string_view text, bool& out) {
  if (text != "true" && text != "false") refuse(text, "true or false");
  out = text == "true";
}

void fromText(std::string_view text, unsigned char& out) {
  bool value = false;
  fromText(text, value);
  out = value ? 1 : 0;
}

void fromText(std::string_view text, std::uint32_t& out) {
  const auto number = readNumber(text, 0xffffffff);
  if (!number) refuse(text, "a number from 0 to 4294967295");
  out = static_cast<std::uint32_t>(*number);
}

void fromText(std::string_view text, std::uint64_t& out) {
  const auto number = readNumber(text, ~std::uint64_t{0});
  if (!number) refuse(text, "a number from 0 to 18446744073709551615");
  out = *number;
}

void fromText(std::string_view text, nv::addr6& out) {
  const std::string address(text);
  const bool isOneText = text.find('\0') == std::string_view::npos;
  if (isOneText && inet_pton(AF_INET6, address.c_str(), out.bytes.data()) == 1) return;
  if (!isOneText || inet_pton(AF_INET, address.c_str(), out.bytes.data() + kMapped.size()) != 1) {
    refuse(text, "an IPv4 or IPv6 address");
  }
  std::ranges::copy(kMapped, out.bytes.begin());
}

void fromText(std::string_view text, std::string& out) { out = text; }

void fromText(std::string_view text, std::vector<unsigned char>& out) {
  constexpr std::string_view expected = "pairs of hexadecimal digits";
  if (text.size() % 2 != 0) refuse(text, expected);
  out.clear();
  for (std::size_t k = 0; k < text.size(); k += 2) {
    const auto byte = readByte(text.substr(k, 2));
    if (!byte) refuse(text, expected);
    out.push_back(*byte);
  }
}

std::string toText(bool value) { return value ? "true" : "false"; }
std::string toText(unsigned char value) { return toText(value != 0); }
std::string toText(std::uint32_t value) { return std::to_string(value); }
std::string toText(std::uint64_t value) { return std::to_string(value); }

std::string toText(const nv::addr6& address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (std::equal(kMapped.begin(), kMapped.end(), address.bytes.begin())) {
    inet_ntop(AF_INET, address.bytes.data() + kMapped.size(), text.data(), text.size());
  } else {
    inet_ntop(AF_INET6, address.bytes.data(), text.data(), text.size());
  }
  return text.data();
}

std::string toText(std::string_view text) { return std::string(text); }

std::string toText(nv::byte_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const unsigned byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 0xf];
  }
  return text;
}

}  // namespace confctl
