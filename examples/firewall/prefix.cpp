#include "examples/firewall/prefix.h"

#include <algorithm>
#include <charconv>

#include <arpa/inet.h>

#include "examples/support/texts.h"

namespace firewall {
namespace {

unsigned bitsOf(bool isIpv4) { return isIpv4 ? 32 : 128; }

/// The first `length` bits, the others 0.
std::array<unsigned char, 16> masked(std::array<unsigned char, 16> bytes, unsigned length) {
  for (std::size_t k = 0; k < bytes.size(); ++k, length -= std::min(length, 8U))
    if (length < 8) bytes[k] &= static_cast<unsigned char>(0xff00U >> length);
  return bytes;
}

}  // namespace

bool Prefix::covers(const Prefix& other) const {
  return isIpv4 == other.isIpv4 && length <= other.length &&
         masked(bytes, length) == masked(other.bytes, length);
}

bool Prefix::hasHostBits() const { return masked(bytes, length) != bytes; }

std::string Prefix::text() const {
  std::array<char, INET6_ADDRSTRLEN> address{};
  inet_ntop(isIpv4 ? AF_INET : AF_INET6, bytes.data(), address.data(), address.size());
  std::string text = address.data();
  if (length < bitsOf(isIpv4)) text += '/' + std::to_string(length);
  return text;
}

std::optional<Prefix> readPrefix(std::string_view text) {
  const auto slash = text.find('/');
  const std::string address(text.substr(0, slash));
  Prefix prefix{.isIpv4 = address.find(':') == address.npos};
  prefix.length = bitsOf(prefix.isIpv4);
  // A zero byte would end the text for the C library before its end.
  if (address.find('\0') != address.npos ||
      inet_pton(prefix.isIpv4 ? AF_INET : AF_INET6, address.c_str(), prefix.bytes.data()) != 1)
    return {};
  if (slash == text.npos) return prefix;

  const auto digits = text.substr(slash + 1);
  unsigned length = 0;
  const auto [end, error] = std::from_chars(digits.begin(), digits.end(), length);
  if (error != std::errc() || end != digits.end() || length > prefix.length) return {};
  prefix.length = length;
  return prefix;
}

std::string prefixFault(std::string_view text) {
  const auto prefix = readPrefix(text);
  const auto quoted = '"' + examples::shown(text) + '"';
  if (!prefix) return quoted + " is no source: one is 192.0.2.7, 10.0.0.0/8 or 2001:db8::/32";
  if (!prefix->hasHostBits()) return "";
  return quoted + " is no source: beyond its first " + std::to_string(prefix->length) +
         " bits it is not 0";
}

}  // namespace firewall
