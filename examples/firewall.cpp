/// A service that keeps the packet filter of a device and writes it to a file for nftables.
///
///     firewall [--bus DIRECTORY] [--store FILE] [--ruleset-file FILE] [--netns yes|no]
#include "examples/firewall/firewall.h"

#include <iostream>

#include "examples/support/options.h"
#include "platform/service.h"

int main(int argc, char** argv) {
  constexpr std::uint32_t kAddress = 103;
  firewall::Box box;
  std::string file = box.rulesetFile, netns = "no";
  nv::Service service(
      argc, argv,
      {.name = "firewall",
       .address = kAddress,
       .moreOptions = {{"--ruleset-file", {&file, "the file for nftables"}},
                       {"--netns", {&netns, "yes: load it, in a network of its own"}}}});
  box.rulesetFile = file;
  box.withKernel = examples::yesOrNo("firewall", "--netns", netns);

  firewall::Firewall rules(box);
  rules.init();
  nv::getLooper()->addHandler(kAddress, &rules);
  std::cout << "firewall: serving " << rules.objectCount() << " rules" << std::endl;
  return service.run();
}
