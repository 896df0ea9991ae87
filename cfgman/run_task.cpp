#include "cfgman/run_task.h"

#include <utility>

#include "platform/runner.h"
#include "platform/timer.h"

CfgMan::RunTask CfgMan::globalRunTask;

namespace {

// Out of the queue before the call, so that a nested run() finds the next one.
void callFirst(std::list<CfgMan::RunTask::Task>& queue) {
  const auto task = std::move(queue.front());
  queue.pop_front();
  task();
}

/// While work is pending, arms a timer so that the loop comes back without sleeping.
void keepLoopAwake() {
  static nv::Timer timer;
  if (CfgMan::globalRunTask.pending.empty() || timer.running()) return;
  timer = nv::Timer(0, [] { CfgMan::globalRunTask.run(); });
}

}  // namespace

void CfgMan::RunTask::post(Task task) { (running ? deferred : pending).push_back(std::move(task)); }

bool CfgMan::RunTask::run() {
  if (pending.empty()) return false;
  callFirst(pending);
  while (!deferred.empty()) callFirst(deferred);
  return !pending.empty();
}

CfgMan::RunTask* CfgMan::getGlobalRunTask() {
  static const bool hooked = (nv::getRunner().addBeforeSleep(keepLoopAwake), true);
  static_cast<void>(hooked);
  return &globalRunTask;
}
