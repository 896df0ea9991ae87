/// A service that keeps the VLANs of a network box and writes them to a file for ifupdown.
///
///     vlans [--bus DIRECTORY] [--store FILE] [--devices NAME,NAME...] [--interfaces-file FILE]
///           [--device-states DIRECTORY] [--netns yes|no]
#include "examples/vlans/vlans.h"

#include <cstdlib>
#include <iostream>
#include <sstream>

#include "platform/service.h"

namespace {

[[noreturn]] void refuseToStart(const std::string& why) {
  std::cerr << "vlans: " << why << std::endl;
  std::exit(EXIT_FAILURE);
}

std::vector<std::string> devicesIn(const std::string& text) {
  std::vector<std::string> devices;
  std::istringstream in(text);
  for (std::string name; std::getline(in, name, ',');) {
    if (const auto fault = vlans::nameFault(name); !fault.empty()) refuseToStart(fault);
    devices.push_back(name);
  }
  return devices;
}

bool yesOrNo(const std::string& text) {
  if (text != "yes" && text != "no") refuseToStart("--netns is yes or no");
  return text == "yes";
}

}  // namespace

int main(int argc, char** argv) {
  constexpr std::uint32_t kAddress = 101;
  vlans::Box box;
  std::string devices, file = box.interfacesFile, states = box.deviceStates, netns = "no";
  nv::Service service(argc, argv,
                      {.name = "vlans",
                       .address = kAddress,
                       .moreOptions = {{"--devices", &devices},
                                       {"--interfaces-file", &file},
                                       {"--device-states", &states},
                                       {"--netns", &netns}}});
  if (!devices.empty()) box.devices = devicesIn(devices);
  box.interfacesFile = file;
  box.deviceStates = states;
  box.withKernel = yesOrNo(netns);

  vlans::Vlans vlans(box);
  vlans.open(kAddress);
  std::cout << "vlans: serving " << vlans.count() << " VLANs" << std::endl;
  return service.run();
}
