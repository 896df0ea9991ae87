#include "platform/policies.h"

#include "platform/commands.h"
#include "platform/keys.h"

namespace nv::policies {

bool is_allowed(const message& request) {
  const auto code = request.get(key::command);
  const bool needsRights = !cmd::onlyReads(code) || code == cmd::getUndo;
  return !needsRights || request.get(key::rights, kSystemRights) != 0;
}

}  // namespace nv::policies
