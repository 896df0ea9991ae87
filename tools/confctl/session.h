/// confctl's place on the bus.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "platform/message.h"
#include "tools/confctl/dictionary.h"
#include "tools/confctl/failure.h"
#include "tools/confctl/target.h"

namespace confctl {

/// What holds for every request.
struct BusOptions {
  std::filesystem::path directory = "/run/confkit";
  std::uint32_t timeout = 5000;                      ///< for an answer, in milliseconds
  std::optional<std::uint32_t> rights = 0x7fffffff;  ///< none: as the system
};

/// Sends requests, and waits for their answers by running the loop of the process. One in a
/// process.
class Session {
 public:
  /// Throws a Failure when there is no bus directory.
  explicit Session(BusOptions options);

  /// The handler that `text` means. Throws a Failure, which says what there is, when there is no
  /// such service.
  Target find(const std::string& text);

  struct Neighbour {
    ServiceAddress service;
    nv::message description;  ///< what it says of itself, or an error reply
  };
  /// All services that have a socket on the bus, each asked whether it runs; it has `timeout`
  /// milliseconds to answer.
  std::vector<Neighbour> neighbours(std::uint32_t timeout);

  /// A request with `command` to a route, carrying the rights of the options.
  nv::message request(const std::vector<std::uint32_t>& route, unsigned command) const;

  /// Sends `request` and waits for its answer, which is returned without the bus's own fields.
  /// Throws a Failure when it is an error reply, of the service or of the platform.
  nv::message ask(const Target& target, const nv::message& request);

  /// The same, but an error reply is returned: `failureOf` makes a Failure of it.
  nv::message tryToAsk(const nv::message& request, std::uint32_t timeout);
  Failure failureOf(const Target& target, const nv::message& request, const nv::message& reply);

  /// Asks for a list: hands each page to `take`, and asks for the next one until there is none.
  /// Throws a Failure when the list comes back to where it was, and so has no end.
  void askPages(const Target& target, nv::message request,
                const std::function<void(const nv::message& page)>& take);

  /// Sends all `requests` at once and returns when each has its answer, error replies included,
  /// after `timeout` milliseconds at the latest (0: as long as it takes).
  std::vector<nv::message> askAll(std::vector<nv::message> requests, std::uint32_t timeout);

  /// What the handler calls its fields; the platform's words alone when it offers no dictionary.
  Dictionary dictionary(const Target& target);

  const BusOptions& options() const { return options_; }

 private:
  std::string whoRuns();
  std::string whichHandlers(const Target& target);

  BusOptions options_;
};

}  // namespace confctl
