#include "message/equal.h"

namespace nv {

bool isEqual(const message& first, message second, unsigned uid) {
  return isKnownType(uid) && first.find(uid) == second.find(uid);
}

}  // namespace nv
