/// What the bus itself writes into messages and takes out of them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/keys.h"
#include "platform/message.h"

namespace nv {

/// The value of key::frameKind. A request has none.
/// `ended`: the handler is gone or the subscriber too late, no notification follows.
enum class Frame : std::uint32_t { request = 0, reply = 1, notification = 2, ended = 3 };

/// Before each frame: its length, little-endian.
inline constexpr std::size_t kFrameHeaderBytes = 4;

/// The requester of what a process asks its own handlers.
inline constexpr std::uint32_t kSelf = 0xbfffffff;

inline Frame frameKind(const message& msg) { return Frame{msg.get(key::frameKind, 0)}; }

inline std::uint32_t requesterOf(const message& request) {
  const auto route = request.get(key::requester);
  return route.empty() ? 0 : route[0];
}

/// Takes out what was for the bus alone.
inline void stripFrame(message& msg) {
  msg.remove(key::frameKind);
  msg.remove(key::tag);
}

/// Takes out everything that says where a message came from or went to, so that the object is left.
inline void stripEnvelope(message& msg) {
  stripFrame(msg);
  msg.remove(key::route);
  msg.remove(key::requester);
  msg.remove(key::command);
  msg.remove(key::rights);
  msg.remove(key::replyMarker);
  msg.remove(key::settled);
}

}  // namespace nv
