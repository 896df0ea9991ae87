/// Everything that the main function of a service needs.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "platform/export.h"
#include "platform/limits.h"
#include "platform/looper.h"
#include "platform/transport.h"

namespace nv {

/// An option of a service's own on the command line.
struct ServiceOption {
  /// Where its value goes. What the command line does not name stays as it is.
  std::string* value = nullptr;
  /// What it is for, in a few words. `--help` prints them, with the value of before.
  std::string about = {};
};

struct ServiceOptions {
  /// A word by which people find the service; also the default name of its store file.
  std::string name;
  std::uint32_t address = 0;
  /// Where the sockets of all services are.
  std::filesystem::path busDirectory = "/run/confkit";
  /// Empty: "<name>.db" in /var/lib/confkit.
  std::filesystem::path storeFile = {};
  /// Permissions of the socket: who may connect at all.
  unsigned socketMode = 0660;
  Limits limits = {};
  /// See Platform::rights.
  std::function<std::uint32_t(const Peer&)> rights = {};
  /// Options of the command line besides the two of every service:
  /// `{"--hosts-file", {&file, "where the hosts file is written"}}`.
  std::map<std::string, ServiceOption> moreOptions = {};
};

/// A service process: takes the address on the bus, opens the store file, runs the loop.
///
///     int main(int argc, char** argv) {
///       nv::Service service(argc, argv, {.name = "hosts", .address = 100});
///       HostMap hosts;
///       hosts.init();
///       nv::getLooper()->addHandler(100, &hosts);
///       return service.run();
///     }
///
/// The command line may change two of the options, `--bus DIRECTORY` and `--store FILE`, and the
/// service's own ones; `--help` prints them and ends the process with status 0. Whatever keeps the
/// service from starting (a wrong argument, a second instance, another service with the same name,
/// a store file that another process holds) is one line on the standard error stream, and the
/// process ends with status 1.
class CONFKIT_API Service {
 public:
  Service(int argc, char** argv, ServiceOptions options);
  ~Service();
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  /// Serves until SIGTERM or SIGINT; then writes what is due and returns 0.
  int run();
};

}  // namespace nv
