/// What must hold, or the input is a find.
#pragma once

#include <cstdlib>

namespace fuzz {

inline void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace fuzz
