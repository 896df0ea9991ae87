/// The side of the loop that runs work between events.
#pragma once

#include <functional>

#include "platform/export.h"

namespace nv {

/// A handle by which work hooks into the loop. Cheap to copy.
class CONFKIT_API ThinRunner {
 public:
  /// `hook` is kept for ever and called in every pass of the loop, before it sleeps. A hook that
  /// has more work arms a timer with delay 0.
  void addBeforeSleep(std::function<void()> hook);
};

CONFKIT_API ThinRunner getRunner();

}  // namespace nv
