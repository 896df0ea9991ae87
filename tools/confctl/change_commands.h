/// The subcommands that change objects.
#pragma once

#include <string>
#include <vector>

#include "tools/confctl/read_commands.h"

namespace confctl {

struct ChangeOptions {
  std::optional<std::uint32_t> id = {};  ///< set without one: the service's single configuration
  bool dynamic = false;                  ///< add
  std::optional<std::uint32_t> managedBy = {};
  std::vector<std::string> fields = {};  ///< see fields.h
};

void addObject(Client client, const std::string& service, const ChangeOptions& options);
void setObject(Client client, const std::string& service, const ChangeOptions& options);
void removeObject(Client client, const std::string& service, const ChangeOptions& options);

}  // namespace confctl
