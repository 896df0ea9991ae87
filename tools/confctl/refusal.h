/// What an error reply means to the one who asked.
#pragma once

#include <string>

#include "platform/message.h"
#include "tools/confctl/failure.h"

namespace confctl {

/// What a request asks for: "set object 5", "add an object", "list objects".
std::string deedOf(const nv::message& request);

/// The failure that ends confctl when `service` answered `request` with the error reply `reply`.
Failure refusal(const std::string& service, const nv::message& request, const nv::message& reply);

}  // namespace confctl
