/// What an error reply means to the one who asked.
#pragma once

#include <string>

#include "platform/message.h"
#include "tools/confctl/failure.h"

namespace confctl {

/// What a request asks for: "set object 5", "add an object", "list objects".
std::string deedOf(const nv::message& request);

/// What the answer of a process, or the error reply instead, tells of it.
enum class Presence {
  running,
  notRunning,  ///< nobody listens there
  noAccess,    ///< this user may not connect
  noHandler,   ///< it runs, and has no handler under this route
  unknown,     ///< it did not answer
};
Presence presenceOf(const nv::message& answer);

/// The failure that ends confctl when `service` answered `request` with the error reply `reply`.
Failure refusal(const std::string& service, const nv::message& request, const nv::message& reply);

}  // namespace confctl
