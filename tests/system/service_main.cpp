// The service of the system tests: <this> READY_FD ADDRESS [--bus DIRECTORY] [--store FILE]
// Writes a byte to READY_FD when it can be connected to.

#include <cstdlib>

#include <unistd.h>

#include "platform/looper.h"
#include "platform/service.h"
#include "tests/system/service_process.h"
#include "tests/system/twin_map.h"

namespace {
using nv::testkit::kClerk;

/// Root is the system, the clerk may do some things, nobody else may change anything.
std::uint32_t rightsOf(const nv::Peer& peer) {
  if (peer.uid == 0 || peer.uid == geteuid()) return nv::kSystemRights;
  return peer.uid == kClerk.uid ? kClerk.rights : 0;
}
}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return EXIT_FAILURE;
  const auto address = static_cast<std::uint32_t>(std::atoi(argv[2]));
  nv::Service service(
      argc - 2, argv + 2,
      {.name = "texts", .address = address, .socketMode = 0666, .rights = rightsOf});
  nv::testkit::TwinMap texts;
  texts.init();
  nv::getLooper()->addHandler(address, &texts);
  const int ready = std::atoi(argv[1]);
  if (write(ready, "!", 1) != 1) return EXIT_FAILURE;
  close(ready);
  return service.run();
}
