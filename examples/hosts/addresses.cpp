#include "examples/hosts/addresses.h"

#include <algorithm>

#include "examples/support/addresses.h"

namespace hosts {

namespace {
constexpr std::size_t kMostAddresses = 16;
}  // namespace

std::string addressesFault(const std::vector<nv::addr6>& addresses) {
  using examples::addressText;
  if (addresses.empty()) return "a host needs an address";
  if (addresses.size() > kMostAddresses)
    return "a host has at most 16 addresses, this one has " + std::to_string(addresses.size());
  for (auto at = addresses.begin(); at != addresses.end(); ++at) {
    if (const auto why = examples::hostAddressFault(*at); !why.empty())
      return addressText(*at) + why;
    if (std::find(addresses.begin(), at, *at) != at) return addressText(*at) + " stands twice";
  }
  return "";
}

}  // namespace hosts
