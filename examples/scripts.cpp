/// A service that keeps named scripts and runs them for other services and for clients.
///
///     scripts [--bus DIRECTORY] [--store FILE]
///
/// Handler 101 keeps scripts and runs those; the service's own handler runs what a request brings.
#include <iostream>

#include "examples/scripts/script_map.h"
#include "examples/scripts/source_runs.h"
#include "platform/service.h"

int main(int argc, char** argv) {
  // Where others send their run requests.
  constexpr std::uint32_t kAddress = 48, kScripts = 101;
  nv::Service service(argc, argv, {.name = "scripts", .address = kAddress});

  scripts::Runner runner;
  scripts::ScriptMap map(runner);
  scripts::SourceRuns sources(runner);
  map.init();
  nv::getLooper()->addHandler(kAddress, &sources);
  nv::getLooper()->addHandler(kScripts, &map);
  std::cout << "scripts: serving " << map.objectCount() << " scripts" << std::endl;
  return service.run();
}
