#include "message/merge.h"

#include "message/field_ops.h"
#include "platform/keys.h"

namespace nv {

bool merge(const message& current, const message& update, message* target, message* undo,
           unsigned uid) {
  const auto after = update.find(uid);
  if (!after && !update.hasElem(key::removals, uid)) return false;
  const auto before = current.find(uid);
  if (before == after) return false;

  if (!before) {
    if (target != nullptr) target->insert(*after);
    if (undo != nullptr) undo->append(key::removals, uid);
    return true;
  }
  if (undo != nullptr) undo->insert(*before);
  if (target == nullptr) return true;
  if (!after) {
    target->erase(uid);
  } else if (undo == &update) {
    copy(target, update, uid);  // the write to `undo` has ended `after`
  } else {
    target->insert(*after);
  }
  return true;
}

}  // namespace nv
