#include "message/stack.h"

#include "message/field_ops.h"
#include "platform/keys.h"

namespace nv {

namespace {

void hold(message* dst, const message& src, unsigned uid) {
  copy(dst, src, uid);
  dst->remove(key::removals, uid);
}

void listRemoved(message* dst, unsigned uid) {
  dst->erase(uid);
  if (!dst->hasElem(key::removals, uid)) dst->append(key::removals, uid);
}

}  // namespace

void stack(message* dst, const message& src, unsigned uid) {
  if (has(src, uid)) {
    hold(dst, src, uid);
  } else if (isKnownType(uid) && src.hasElem(key::removals, uid)) {
    listRemoved(dst, uid);
  }
}

void remerge(message* dst, const message& src, unsigned uid) {
  if (has(src, uid)) {
    hold(dst, src, uid);
  } else if (has(*dst, uid)) {
    listRemoved(dst, uid);
  }
}

}  // namespace nv
