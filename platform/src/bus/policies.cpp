#include "platform/policies.h"

#include "platform/commands.h"
#include "platform/keys.h"

namespace nv::policies {

namespace {
bool onlyReads(unsigned code) {
  switch (code) {
    case cmd::getObj:
    case cmd::getAll:
    case cmd::get:
    case cmd::getCount:
    case cmd::stopGetAll:
    case cmd::routeGone:
    case cmd::subscribe:
    case cmd::unsubscribe:
    case cmd::describe: return true;
    default: return false;
  }
}
}  // namespace

bool is_allowed(const message& request) {
  return onlyReads(request.get(key::command)) || request.get(key::rights, kSystemRights) != 0;
}

}  // namespace nv::policies
