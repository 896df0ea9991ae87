/// A service that keeps static neighbours and shows, behind them, the neighbours and connections of
/// the kernel.
///
///     neighbours [--bus DIRECTORY] [--store FILE] [--proc-net DIRECTORY]
#include "examples/neighbours/neighbours.h"

#include <iostream>

#include "platform/service.h"

int main(int argc, char** argv) {
  constexpr std::uint32_t kAddress = 110;
  std::string tables = "/proc/net";
  nv::Service service(
      argc, argv,
      {.name = "neighbours",
       .address = kAddress,
       .moreOptions = {{"--proc-net", {&tables, "the folder of the kernel's tables"}}}});

  neighbours::Neighbours neighbours(tables);
  neighbours.open(kAddress);
  std::cout << "neighbours: serving " << neighbours.manager().items.size() << " static ones"
            << std::endl;
  return service.run();
}
