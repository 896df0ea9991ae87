#include "examples/support/addresses.h"

#include <algorithm>
#include <array>

#include <arpa/inet.h>

namespace examples {
namespace {

constexpr std::array<unsigned char, 12> kMappedPrefix{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
constexpr std::size_t kIpv4 = kMappedPrefix.size();  // where the IPv4 address begins

bool isIpv4(const nv::addr6& address) {
  return std::equal(kMappedPrefix.begin(), kMappedPrefix.end(), address.bytes.begin());
}

bool isUnspecified(const nv::addr6& address) {
  const auto* const first = address.bytes.begin() + (isIpv4(address) ? kIpv4 : 0);
  return std::all_of(first, address.bytes.end(), [](unsigned char byte) { return byte == 0; });
}

bool isMulticast(const nv::addr6& address) {
  return isIpv4(address) ? (address.bytes[kIpv4] & 0xf0) == 0xe0 : address.bytes[0] == 0xff;
}

bool isBroadcast(const nv::addr6& address) {
  return isIpv4(address) && std::all_of(address.bytes.begin() + kIpv4, address.bytes.end(),
                                        [](unsigned char byte) { return byte == 0xff; });
}

}  // namespace

std::string addressText(const nv::addr6& address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (isIpv4(address))
    inet_ntop(AF_INET, address.bytes.data() + kIpv4, text.data(), text.size());
  else
    inet_ntop(AF_INET6, address.bytes.data(), text.data(), text.size());
  return text.data();
}

std::optional<nv::addr6> addressFrom(const std::string& text) {
  nv::addr6 address;
  const auto full = text.find(':') == std::string::npos ? "::ffff:" + text : text;
  if (inet_pton(AF_INET6, full.c_str(), address.bytes.data()) != 1) return {};
  return address;
}

std::string hostAddressFault(const nv::addr6& address) {
  if (isUnspecified(address)) return " stands for no address";
  if (isMulticast(address)) return " is a multicast address";
  if (isBroadcast(address)) return " is the broadcast address";
  return "";
}

}  // namespace examples
