/// Who may do what, decided before a handler sees a command.
#pragma once

#include "platform/export.h"
#include "platform/message.h"

namespace nv::policies {

/// The platform's reading commands are allowed to everyone whom the socket lets in; all others, a
/// service's own included, need rights: any bit of key::rights, the system's included. So do the
/// undo records, which hold requests as they were made.
CONFKIT_API bool is_allowed(const message& request);

}  // namespace nv::policies
