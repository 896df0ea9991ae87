#include "message/merge.h"

#include "message/field_ops.h"
#include "platform/keys.h"

namespace nv {

namespace {

/// The field `uid` of `current`, which the update does not hold.
bool mergeRemoval(const message& current, const message& update, message* target, message* undo,
                  unsigned uid) {
  if (!update.hasElem(key::removals, uid)) return false;
  if (undo != nullptr) copy(undo, current, uid);
  if (target != nullptr) target->erase(uid);
  return true;
}

void mergeAddition(const message& update, message* target, message* undo, unsigned uid) {
  if (target != nullptr) copy(target, update, uid);
  if (undo != nullptr) undo->append(key::removals, uid);
}

/// Values are looked up anew for each write: either message written may be one that is read.
void mergeChange(const message& current, const message& update, message* target, message* undo,
                 unsigned uid) {
  if (undo != nullptr) copy(undo, current, uid);
  if (target != nullptr) copy(target, update, uid);
}

}  // namespace

bool merge(const message& current, const message& update, message* target, message* undo,
           unsigned uid) {
  const auto before = current.find(uid);
  const auto after = update.find(uid);
  if (!after) return before && mergeRemoval(current, update, target, undo, uid);
  if (before == after) return false;
  if (before) {
    mergeChange(current, update, target, undo, uid);
  } else {
    mergeAddition(update, target, undo, uid);
  }
  return true;
}

}  // namespace nv
