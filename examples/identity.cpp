/// A service that keeps who a device is and writes it to a file for other programs.
///
///     identity [--bus DIRECTORY] [--store FILE] [--identity-file FILE] [--zones DIRECTORY]
#include "examples/identity/identity.h"

#include <iostream>

#include "platform/service.h"

int main(int argc, char** argv) {
  constexpr std::uint32_t kAddress = 104;
  identity::Box box;
  std::string file = box.file, zones = box.zones;
  nv::Service service(
      argc, argv,
      {.name = "identity",
       .address = kAddress,
       .moreOptions = {{"--identity-file", {&file, "the file that other programs read"}},
                       {"--zones", {&zones, "the folder of the time zones"}}}});
  box.file = file;
  box.zones = zones;

  identity::Identity identity(box);
  identity.init();
  nv::getLooper()->addHandler(kAddress, &identity);
  std::cout << "identity: serving who the device is" << std::endl;
  return service.run();
}
