/// The queue of a configuration manager's deferred work.
#pragma once

#include <functional>
#include <list>

#include "cfgman/cfgman.h"

#pragma GCC diagnostic push
// Nobody owns a runner through a pointer to its base, and the one virtual operation is all of it.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

/// Runs tasks one at a time, in the order in which they were posted. Not owned by the managers that
/// use it, and outlives them. Who makes a runner of his own calls `run` himself; the process-wide
/// one is run by the event loop, one pending task in each pass.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): see the pragma
class CONFKIT_API CfgMan::RunTask {
 public:
  using Task = std::function<void()>;

  /// Queues `task`: with `deferred` while `running` is set, otherwise with `pending`. One that is
  /// overridden to call `task` at once is allowed: a manager carries out one update at a time.
  virtual void post(Task task);

  /// Calls the first pending task, then all deferred ones, those that they add included. Returns
  /// whether more is pending. With nothing pending it calls nothing, whatever is deferred. A task
  /// may call `run` again: a task is never called twice.
  ///
  /// An observer that posts for every update it hears of, those without changed keys included,
  /// keeps this call going for ever.
  bool run();

  /// Set while a manager calls its observers, so that what they post runs right after the update.
  bool running = false;
  std::list<Task> pending;
  std::list<Task> deferred;
};

#pragma GCC diagnostic pop
