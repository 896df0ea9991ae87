/// A service that keeps static host names for a resolver and writes them to a hosts file.
///
///     hosts [--bus DIRECTORY] [--store FILE] [--hosts-file FILE]
#include <iostream>

#include "examples/hosts/host_map.h"
#include "platform/service.h"

int main(int argc, char** argv) {
  constexpr std::uint32_t kAddress = 100;
  std::string file = "/var/lib/confkit/hosts";
  nv::Service service(
      argc, argv,
      {.name = "hosts",
       .address = kAddress,
       .moreOptions = {{"--hosts-file", {&file, "the file that a resolver reads"}}}});

  hosts::HostMap map(file);
  map.init();
  nv::getLooper()->addHandler(kAddress, &map);
  std::cout << "hosts: serving " << map.objectCount() << " hosts" << std::endl;
  return service.run();
}
