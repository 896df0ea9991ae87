#include "examples/hosts/hosts_file.h"

#include "examples/support/addresses.h"

namespace hosts {

std::string hostsLines(const Host& host) {
  std::string lines;
  if (host.disabled) return lines;
  for (const auto& address : host.addresses) {
    lines += examples::addressText(address) + '\t' + host.hostName;
    if (!host.comment.empty()) lines += "\t# " + host.comment;
    lines += '\n';
  }
  return lines;
}

}  // namespace hosts
