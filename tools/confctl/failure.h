/// Why confctl ends without having done what it was asked for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace confctl {

/// Exit statuses, part of the interface: scripts look at them.
enum class Exit {
  done = 0,
  failed = 1,     ///< confctl itself: nowhere to write to, an answer that makes no sense
  usage = 2,      ///< the command line; nothing was sent
  refused = 3,    ///< the service answered with an error
  noService = 4,  ///< nobody is there, or the connection ended before the answer
  timedOut = 5,
};

/// Thrown by everything below `main`, which prints it.
struct Failure {
  Exit status;
  std::string text;                          ///< one sentence, without a newline
  std::optional<unsigned> code = {};         ///< of the error reply
  std::optional<std::uint32_t> object = {};  ///< that the request was about
};

inline Failure usage(std::string text) { return {Exit::usage, std::move(text)}; }

}  // namespace confctl
