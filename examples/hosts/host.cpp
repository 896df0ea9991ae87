#include "examples/hosts/host.h"

#include <algorithm>

#include "examples/hosts/addresses.h"
#include "examples/hosts/host_names.h"

namespace hosts {
namespace {

constexpr std::size_t kLongestComment = 200;

template <class Id, class Value>
void take(const nv::message& in, Id id, Value& value) {
  if (in.has(id))
    value = in.get(id);
  else if (in.hasElem(nv::key::removals, id.uid()))
    value = {};
}

bool isControl(unsigned char c) { return c < 0x20 || c == 0x7f; }

// The comment ends up in a file of lines: a line end in it would be somebody else's host.
std::string commentFault(const std::string& comment) {
  if (comment.size() > kLongestComment)
    return "a comment has at most " + std::to_string(kLongestComment) + " bytes, this one has " +
           std::to_string(comment.size());
  if (std::any_of(comment.begin(), comment.end(), isControl))
    return "a comment is one line without control characters";
  return "";
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
  for (auto why : {nameFault(hostName), addressesFault(addresses), commentFault(comment)})
    if (!why.empty()) return why;
  return "";
}

}  // namespace hosts
