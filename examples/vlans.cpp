/// A service that keeps the VLANs of a network box and writes them to a file for ifupdown.
///
///     vlans [--bus DIRECTORY] [--store FILE] [--devices NAME,NAME...] [--interfaces-file FILE]
///           [--device-states DIRECTORY] [--netns yes|no]
#include "examples/vlans/vlans.h"

#include <iostream>
#include <sstream>

#include "examples/support/options.h"
#include "examples/support/texts.h"
#include "platform/service.h"

namespace {

std::vector<std::string> devicesIn(const std::string& text) {
  std::vector<std::string> devices;
  std::istringstream in(text);
  for (std::string name; std::getline(in, name, ',');) {
    const auto fault = examples::interfaceNameFault(name);
    if (!fault.empty()) examples::refuseToStart("vlans", fault);
    devices.push_back(name);
  }
  return devices;
}

}  // namespace

int main(int argc, char** argv) {
  constexpr std::uint32_t kAddress = 101;
  vlans::Box box;
  std::string devices, file = box.interfacesFile, states = box.deviceStates, netns = "no";
  nv::Service service(
      argc, argv,
      {.name = "vlans",
       .address = kAddress,
       .moreOptions = {{"--devices", {&devices, "NAME,NAME...: which ones may have VLANs"}},
                       {"--interfaces-file", {&file, "the file for ifupdown"}},
                       {"--device-states", {&states, "the folder of the devices' states"}},
                       {"--netns", {&netns, "yes: make them, in a network of its own"}}}});
  if (!devices.empty()) box.devices = devicesIn(devices);
  box.interfacesFile = file;
  box.deviceStates = states;
  box.withKernel = examples::yesOrNo("vlans", "--netns", netns);

  vlans::Vlans vlans(box);
  vlans.open(kAddress);
  std::cout << "vlans: serving " << vlans.count() << " VLANs" << std::endl;
  return service.run();
}
