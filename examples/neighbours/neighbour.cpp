#include "examples/neighbours/neighbour.h"

#include <algorithm>

#include "examples/support/addresses.h"
#include "examples/support/texts.h"

namespace neighbours {
namespace {

constexpr std::size_t kLongestDevice = 15;  // the kernel's
constexpr std::size_t kHardwareSize = 17;   // aa:bb:cc:dd:ee:ff

bool isHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); }

std::string addressFault(const nv::message& config) {
  const auto address = config.get(kAddress);
  if (!config.has(kAddress)) return "a neighbour needs an address";
  const auto why = examples::hostAddressFault(address);
  return why.empty() ? "" : examples::addressText(address) + why;
}

std::string hardwareFault(std::string_view hardware) {
  bool isProper = hardware.size() == kHardwareSize;
  for (std::size_t k = 0; isProper && k < hardware.size(); ++k)
    isProper = k % 3 == 2 ? hardware[k] == ':' : isHexDigit(hardware[k]);
  if (isProper) return "";
  return '"' + examples::shown(hardware) + "\" is no hardware address like 02:00:5e:10:00:01";
}

std::string deviceFault(std::string_view device) {
  if (device.empty()) return "a neighbour needs a device";
  const bool isProper =
      device.size() <= kLongestDevice && std::all_of(device.begin(), device.end(), [](char c) {
        return c > ' ' && c < 0x7f && c != '/' && c != ':';
      });
  return isProper ? "" : '"' + examples::shown(device) + "\" is no device";
}

}  // namespace

std::vector<nv::KeyInfo> dictionary() {
  return {{kTable.uid(), "table", "where the kernel has it; none: made by a user"},
          {kAddress.uid(), "address", "of the neighbour; of a connection: at this end"},
          {kHardware.uid(), "hardware", "its address on the wire"},
          {kDevice.uid(), "device", "where it is"},
          {kComment.uid(), "comment", "a line for people"},
          {kPort.uid(), "port", "at this end (not configured)"},
          {kPeer.uid(), "peer", "the other end (not configured)"},
          {kPeerPort.uid(), "peer-port", "at the other end (not configured)"},
          {kState.uid(), "state", "of the connection, or of the neighbour (not configured)"},
          {kUser.uid(), "user", "whose connection it is (not configured)"}};
}

void addConfigKeys(CfgMan& manager) {
  manager.configIds.merge({kAddress.uid(), kHardware.uid(), kDevice.uid(), kComment.uid()});
}

Place placeOf(const nv::message& config) {
  return {config.get(kDevice), config.get(kAddress).bytes};
}

std::string label(const nv::message& config) {
  return examples::addressText(config.get(kAddress)) + " on " +
         examples::shown(config.view(kDevice));
}

std::string fault(const nv::message& config) {
  for (auto why :
       {addressFault(config), hardwareFault(config.view(kHardware)),
        deviceFault(config.view(kDevice)), examples::commentFault(config.view(kComment))})
    if (!why.empty()) return why;
  return "";
}

}  // namespace neighbours
