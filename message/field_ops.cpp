#include "message/field_ops.h"

#include <ostream>

namespace nv {

bool has(const message& msg, unsigned uid) { return msg.find(uid).has_value(); }

void remove(message* msg, unsigned uid) { msg->erase(uid); }

void copy(message* dst, const message& src, unsigned uid) {
  if (const auto held = src.find(uid)) {
    dst->insert(*held);
  } else {
    dst->erase(uid);
  }
}

std::ostream& dumpUId(std::ostream& os, unsigned uid) {
  if (isKnownType(uid)) os << (uid & kIdMask) << typeSuffix(uid);
  return os;
}

}  // namespace nv
