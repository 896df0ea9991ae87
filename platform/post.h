/// A request whose answer is awaited.
#pragma once

#include <cstdint>
#include <functional>

#include "platform/export.h"
#include "platform/message.h"

namespace nv {

/// Sends a request to the route in its key::route and hands the answer to a function, exactly once:
/// the reply, or an error reply made by the platform (err::timedOut after the time given,
/// err::noRoute when nobody is there, when this user may not connect, or when the connection ends
/// first). Never from within the constructor. A service that takes no more connections for the
/// moment is tried again until the time is over.
///
/// Destruction, and assigning another Post, cancels: the function is not called any more, and a
/// request that has not left yet, because what was stored before it is not on disk, never leaves
/// (nor does it after its time-out). The
/// function may destroy the Post: it is moved out before it is called. An empty function is
/// allowed.
class CONFKIT_API Post {
 public:
  Post() = default;
  /// `timeout` in milliseconds; 0: none, the answer is awaited as long as it takes, and a service
  /// that takes no more connections is tried for ever.
  Post(message& request, std::function<void(const message&)> done, std::uint32_t timeout);
  ~Post() { cancel(); }
  Post(Post&& other) noexcept;
  Post& operator=(Post&& other) noexcept;

  void cancel();
  /// Whether the answer is still awaited.
  bool pending() const;

 private:
  std::uint32_t tag_ = 0;  // 0: none
};

}  // namespace nv
