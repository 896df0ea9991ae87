/// A service that keeps a copy of what the VLANs service has, and answers when that one does not.
///
///     vlan-mirror [--bus DIRECTORY] [--store FILE]
#include "examples/vlans/vlan_mirror.h"

#include <iostream>

#include "platform/service.h"

int main(int argc, char** argv) {
  constexpr std::uint32_t kVlans = 101, kAddress = 102;
  nv::Service service(argc, argv, {.name = "vlan-mirror", .address = kAddress});
  vlans::VlanMirror mirror;
  mirror.open(kAddress, kVlans);
  std::cout << "vlan-mirror: serving " << mirror.manager().items.size() << " VLANs" << std::endl;
  return service.run();
}
