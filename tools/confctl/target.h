/// Which handler the user means, and which services there are.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace confctl {

/// A handler on the bus.
struct Target {
  std::string text;                  ///< as the user wrote it
  std::vector<std::uint32_t> route;  ///< address, or address and handler
};

/// The target of "100", "hosts", "100.3" or "hosts.3": an address or the name of a service, and a
/// handler of its process. Throws a Failure when the bus has no service of that name.
Target findTarget(const std::filesystem::path& bus, const std::string& text);

struct ServiceAddress {
  std::uint32_t address;
  std::string name;  ///< empty when it has none
};

/// The services that have a socket in the bus directory, ascending by address. Whether somebody
/// listens there is not looked at. Throws a Failure when the directory cannot be read.
std::vector<ServiceAddress> findServices(const std::filesystem::path& bus);

}  // namespace confctl
