#include "tools/confctl/target.h"

#include <map>
#include <optional>

#include "tools/confctl/elements.h"
#include "tools/confctl/failure.h"
#include "tools/confctl/words.h"

namespace confctl {
namespace {

namespace fs = std::filesystem;

std::optional<std::uint32_t> readU32(std::string_view text) {
  const auto number = readNumber(text, 0xffffffff);
  return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
}

/// The address of a socket called "<address>.sock".
std::optional<std::uint32_t> addressOf(const fs::path& socket) {
  return socket.extension() == ".sock" ? readU32(socket.stem().string()) : std::nullopt;
}

/// The address to which the link `name` in the bus directory leads.
std::optional<std::uint32_t> namedAddress(const fs::path& bus, const std::string& name) {
  if (name.find('/') != std::string::npos) return {};
  std::error_code error;
  const fs::path socket = fs::read_symlink(bus / name, error);
  return error ? std::nullopt : addressOf(socket.filename());
}

std::optional<std::uint32_t> findAddress(const fs::path& bus, const std::string& service) {
  const auto address = readU32(service);
  return address ? address : namedAddress(bus, service);
}

}  // namespace

Target findTarget(const fs::path& bus, const std::string& text) {
  if (const auto address = findAddress(bus, text)) return {text, {*address}};
  const auto dot = text.rfind('.');
  if (dot != std::string::npos) {
    const auto address = findAddress(bus, text.substr(0, dot));
    const auto handler = readU32(text.substr(dot + 1));
    if (address && handler) return {text, {*address, *handler}};
  }
  throw Failure{Exit::noService, "no service is called '" + printable(text) + "'"};
}

std::vector<ServiceAddress> findServices(const fs::path& bus) {
  std::map<std::uint32_t, std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(bus, error), end; !error && entry != end;
       entry.increment(error)) {
    const fs::path name = entry->path().filename();
    if (const auto address = addressOf(name)) {
      names.try_emplace(*address);
    } else if (const auto named = namedAddress(bus, name)) {
      names[*named] = name;
    }
  }
  if (error) {
    throw Failure{Exit::noService, "the bus in " + bus.string() + ": " + error.message()};
  }
  std::vector<ServiceAddress> services;
  services.reserve(names.size());
  for (const auto& [address, name] : names) services.push_back({address, name});
  return services;
}

}  // namespace confctl
