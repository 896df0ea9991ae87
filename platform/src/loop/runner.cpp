#include "platform/runner.h"

#include <utility>

#include "platform/src/loop/looper_impl.h"

namespace nv {

void ThinRunner::addBeforeSleep(std::function<void()> hook) {
  theLoop().hooks.push_back(std::move(hook));
}

ThinRunner getRunner() { return {}; }

}  // namespace nv
