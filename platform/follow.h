/// Keeping a copy of the objects of another handler.
#pragma once

#include <functional>

#include "platform/export.h"
#include "platform/message.h"

namespace nv {

/// Follows the handler at the route in `target`'s key::route: `callback` gets one message for each
/// of its objects and an empty one after the last, then one message for each object that changes.
///
/// An object message holds key::objectId and the object's configuration, without the envelope; one
/// with key::absent non-zero says that the object is gone. The single object of a holder is object
/// 0. Get flags are `target`'s key::getFlags, default 5. Errors are not delivered: while the
/// handler cannot be reached, it is tried again (after 100 ms, then ever more rarely, at most
/// every 3.2 s). So it is when the pages of the set lead back to one that was read, or when the
/// object with which the next begins is removed before it is asked for. When a connection was lost,
/// or the handler was destroyed, nothing is said of the objects; once there is a handler again the
/// whole set is delivered anew, then a removal for each object that has vanished meanwhile, then
/// another empty message.
///
/// `callback` is called from the loop, never from within this call. `waitInitial` is recorded for
/// observers; nothing depends on it. The handle is valid until `stopFollow`.
CONFKIT_API void* follow(std::function<void(const message&)> callback, const message& target,
                         bool waitInitial);

/// Ends a follow: no call of its callback follows, also when this is called from within it. Null is
/// allowed.
CONFKIT_API void stopFollow(void* handle);

}  // namespace nv
