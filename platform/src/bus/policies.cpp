#include "platform/policies.h"

#include "platform/commands.h"
#include "platform/keys.h"

namespace nv::policies {

bool is_allowed(const message& request) {
  return cmd::onlyReads(request.get(key::command)) || request.get(key::rights, kSystemRights) != 0;
}

}  // namespace nv::policies
