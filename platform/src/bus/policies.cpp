#include "platform/policies.h"

#include "platform/commands.h"
#include "platform/keys.h"

namespace nv::policies {

bool is_allowed(const message& request) {
  const auto code = request.get(key::command);
  // Undo records show requests as they were made.
  const bool isForAll = cmd::onlyReads(code) && code != cmd::getUndo;
  return isForAll || request.get(key::rights, kSystemRights) != 0;
}

}  // namespace nv::policies
