#include "examples/hosts/host.h"

#include "examples/hosts/addresses.h"
#include "examples/support/host_names.h"
#include "examples/support/take.h"
#include "examples/support/texts.h"

namespace hosts {

void Host::getConfig(nv::message& out, std::uint32_t) {
  out.insert(kName, hostName).insert(kAddresses, addresses);
  out.insert(kComment, comment).insert(kDisabled, disabled);
}

void Host::setConfig(const nv::message& in, std::uint32_t) {
  examples::take(in, kName, hostName);
  examples::take(in, kAddresses, addresses);
  examples::take(in, kComment, comment);
  examples::take(in, kDisabled, disabled);
}

std::string Host::fault() const {
  for (auto why : {examples::hostNameFault(hostName), addressesFault(addresses),
                   examples::commentFault(comment)})
    if (!why.empty()) return why;
  return "";
}

}  // namespace hosts
