/// Descriptors that the event loop looks at.
#pragma once

#include <functional>
#include <memory>

#include "platform/export.h"
#include "platform/loop_engine.h"

namespace nv {

/// Calls a function in each pass of the loop in which a descriptor can be read without waiting, its
/// end and its errors included: pipes, sockets, process descriptors. Whoever has seen the end must
/// stop the watch, or is called in every pass.
///
/// Destruction stops it, and so does assigning another one; either must come before the descriptor
/// is closed, and before the loop is put together anew. The function may do both.
class CONFKIT_API FdWatch {
 public:
  /// Looks at nothing.
  FdWatch() = default;
  /// `fd` is made non-blocking. Not owned.
  FdWatch(int fd, std::function<void()> readable);

  void stop() { watch_.reset(); }
  /// Whether the function is called; false from the beginning when the loop of this process cannot
  /// look at such a descriptor.
  bool running() const { return watch_ != nullptr; }

 private:
  std::unique_ptr<LoopEngine::Watch> watch_;
};

}  // namespace nv
