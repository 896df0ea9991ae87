/// Who may do what, decided before a handler sees a command.
#pragma once

#include "platform/export.h"
#include "platform/message.h"

namespace nv::policies {

/// Reading is allowed to everyone whom the socket lets in; the commands that change configuration
/// (cmd::isChange) need rights: any bit of key::rights, the system's included.
CONFKIT_API bool is_allowed(const message& request);

}  // namespace nv::policies
