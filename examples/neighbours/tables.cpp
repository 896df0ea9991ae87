#include "examples/neighbours/tables.h"

#include <array>
#include <charconv>
#include <cstring>
#include <sstream>

#include "examples/neighbours/neighbour.h"
#include "examples/support/addresses.h"

namespace neighbours {
namespace {

constexpr std::size_t kWordDigits = 8;  // of 32 bits
constexpr std::size_t kIpv4Begin = 12;  // in an IPv4-mapped address

struct Endpoint {
  nv::addr6 address;
  std::uint32_t port = 0;
};

std::optional<std::uint32_t> number(std::string_view digits, int base) {
  std::uint32_t value = 0;
  const auto* const end = digits.data() + digits.size();
  const auto [stop, fault] = std::from_chars(digits.data(), end, value, base);
  if (fault != std::errc() || stop != end) return {};
  return value;
}

/// Words in the order of the machine, each the bytes of the address as they stand in memory.
std::optional<nv::addr6> addressOf(std::string_view digits) {
  nv::addr6 address{};
  const bool isIpv4 = digits.size() == kWordDigits;
  if (!isIpv4 && digits.size() != 4 * kWordDigits) return {};
  if (isIpv4) address.bytes[10] = address.bytes[11] = 0xff;
  for (auto* at = address.bytes.data() + (isIpv4 ? kIpv4Begin : 0); !digits.empty(); at += 4) {
    const auto word = number(digits.substr(0, kWordDigits), 16);
    if (!word) return {};
    std::memcpy(at, &*word, sizeof *word);
    digits.remove_prefix(kWordDigits);
  }
  return address;
}

/// ADDRESS:PORT
std::optional<Endpoint> endpointOf(std::string_view text) {
  const auto colon = text.find(':');
  if (colon == std::string_view::npos) return {};
  const auto address = addressOf(text.substr(0, colon));
  const auto port = number(text.substr(colon + 1), 16);
  if (!address || !port) return {};
  return Endpoint{*address, *port};
}

std::string stateText(std::uint32_t state) {
  constexpr std::array names{"",           "established", "syn-sent",  "syn-received",
                             "fin-wait-1", "fin-wait-2",  "time-wait", "closed",
                             "close-wait", "last-ack",    "listening", "closing"};
  return state < names.size() ? names[state] : std::to_string(state);
}

/// "IP address  HW type  Flags  HW address  Mask  Device"
std::optional<nv::message> neighbour(std::istream& line) {
  std::string address, type, flags, hardware, mask, device;
  if (!(line >> address >> type >> flags >> hardware >> mask >> device)) return {};
  const auto parsed = examples::addressFrom(address);
  if (!parsed || flags.size() < 3) return {};
  const auto bits = number(std::string_view(flags).substr(2), 16);
  if (!bits) return {};
  // The bits say that the entry is complete, and that it is permanent.
  const char* const state = (*bits & 4) != 0 ? "permanent" : (*bits & 2) != 0 ? "known" : "unknown";
  return nv::message{
      {kAddress, *parsed}, {kHardware, hardware}, {kDevice, device}, {kState, state}};
}

/// "sl: local remote state queues timer retransmits user ..."
std::optional<nv::message> connection(std::istream& line) {
  std::string place, here, there, state, skipped, user;
  line >> place >> here >> there >> state >> skipped >> skipped >> skipped >> user;
  const auto local = endpointOf(here), peer = endpointOf(there);
  const auto code = number(state, 16), uid = number(user, 10);
  if (!line || !local || !peer || !code || !uid) return {};
  return nv::message{{kAddress, local->address}, {kPort, local->port},       {kPeer, peer->address},
                     {kPeerPort, peer->port},    {kState, stateText(*code)}, {kUser, *uid}};
}

}  // namespace

std::optional<nv::message> recordOf(std::string_view table, const std::string& line) {
  std::istringstream in(line);
  auto record = table == "arp" ? neighbour(in) : connection(in);
  if (record) record->insert(kTable, table);
  return record;
}

}  // namespace neighbours
