/// The subcommands that change objects.
#pragma once

#include <string>
#include <vector>

#include "tools/confctl/read_commands.h"

namespace confctl {

/// Where an object goes; at most one of them.
struct Place {
  std::optional<std::uint32_t> before = {};
  bool first = false;  ///< before all that are there when the service is asked
  bool last = false;   ///< behind all

  bool isGiven() const { return before || first || last; }
};

struct ChangeOptions {
  std::optional<std::uint32_t> id = {};  ///< set without one: the service's single configuration
  bool dynamic = false;                  ///< add
  Place place = {};                      ///< add; none: where the service puts it
  std::optional<std::uint32_t> managedBy = {};
  std::vector<std::string> fields = {};  ///< see fields.h
};

void addObject(Client client, const std::string& service, const ChangeOptions& options);
void setObject(Client client, const std::string& service, const ChangeOptions& options);
void removeObject(Client client, const std::string& service, const ChangeOptions& options);

/// Takes back all that the manager says in the single configuration of a service.
void dropManaged(Client client, const std::string& service, std::uint32_t manager);
void moveObject(Client client, const std::string& service, std::uint32_t id, const Place& place);

}  // namespace confctl
