#include "message/equal.h"

namespace nv {

// The published signature takes a copy.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
bool isEqual(const message& first, message second, unsigned uid) {
  return isKnownType(uid) && first.find(uid) == second.find(uid);
}

}  // namespace nv
