/// The subcommands that look and change nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/confctl/printer.h"
#include "tools/confctl/session.h"

namespace confctl {

/// What every subcommand works with.
struct Client {
  Session& session;
  Printer& printer;

  /// The handler that `service` means; from now on its fields have the names it gives them.
  Target open(const std::string& service);
};

struct ReadOptions {
  std::uint32_t flags = 5;
  bool defaults = false;                       ///< the default configuration as well
  std::optional<std::uint32_t> pageSize = {};  ///< most objects per request of a list
};

/// All services of the bus, each with whether it answers.
void showServices(Client client);
/// The dictionary of a service.
void showKeys(Client client, const std::string& service);
/// One object; without an id the configuration of a service that has a single one.
void getObject(Client client, const std::string& service, std::optional<std::uint32_t> id,
               const ReadOptions& options);
/// All objects, page by page; each page is printed before the next is asked for.
void listObjects(Client client, const std::string& service, const ReadOptions& options);
void countObjects(Client client, const std::string& service);
/// What the service says of its inside.
void dumpService(Client client, const std::string& service, std::uint32_t flags);

}  // namespace confctl
