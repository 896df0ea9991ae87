#include "examples/hosts/host.h"

#include "examples/hosts/addresses.h"
#include "examples/hosts/host_names.h"
#include "examples/support/texts.h"

namespace hosts {
namespace {

template <class Id, class Value>
void take(const nv::message& in, Id id, Value& value) {
  if (in.has(id))
    value = in.get(id);
  else if (in.hasElem(nv::key::removals, id.uid()))
    value = {};
}

}  // namespace

void Host::getConfig(nv::message& out, std::uint32_t) {
  out.insert(kName, hostName).insert(kAddresses, addresses);
  out.insert(kComment, comment).insert(kDisabled, disabled);
}

void Host::setConfig(const nv::message& in, std::uint32_t) {
  take(in, kName, hostName);
  take(in, kAddresses, addresses);
  take(in, kComment, comment);
  take(in, kDisabled, disabled);
}

std::string Host::fault() const {
  for (auto why : {nameFault(hostName), addressesFault(addresses), examples::commentFault(comment)})
    if (!why.empty()) return why;
  return "";
}

}  // namespace hosts
