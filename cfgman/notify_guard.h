/// Telling subscribers of a change that no update made.
#pragma once

#include <memory>

#include "cfgman/cfgman.h"

/// Put around a change of what a manager's object looks like, such as live state that the service
/// keeps itself:
///
///     NotifyGuard guard(&manager, port);
///     linkUp[port] = true;
///
/// The object is fetched as each subscriber sees it before and after, once per get flags, and who
/// sees a difference in an object that interests it is told. A subscriber that comes in between is
/// told of an object that interests it; one that comes when there was none at first is not.
///
/// A `doGet` that answers for a missing object with anything but key::absent makes a removal look
/// like a change.
class CONFKIT_API NotifyGuard {
 public:
  /// Watches nothing when `cm` is null or has no handler or subscriber, or `id` is 0xffffffff.
  NotifyGuard(CfgMan* cm, unsigned id);
  ~NotifyGuard();
  NotifyGuard(const NotifyGuard&) = delete;
  NotifyGuard& operator=(const NotifyGuard&) = delete;

 private:
  class Snapshot;
  std::unique_ptr<Snapshot> snapshot_;
};
