/// Error codes of replies made with `nv::errorMsg`.
#pragma once

namespace nv::err {

/// No object with that id (the configuration manager's get one).
inline constexpr unsigned noSuchItem = 0xfe0001;
/// The code of `nv::failedMsg`: refused, the text says why.
inline constexpr unsigned failed = 0xfe0003;
/// No object with that id; an id outside the range; a get-all start id not found.
inline constexpr unsigned noSuchObject = 0xfe0004;
/// A command that the handler does not take, or one that contradicts itself.
inline constexpr unsigned badCommand = 0xfe0006;
/// The requested id is in use, or no id is free.
inline constexpr unsigned idInUse = 0xfe0007;
/// A change of script rights refused.
inline constexpr unsigned scriptRights = 0xfe0009;
/// A position, or the manager's get-all start id, names no object.
inline constexpr unsigned noSuchPosition = 0xfe000b;
/// No free iteration id for a stateful get-all.
inline constexpr unsigned noIterationId = 0xfe000c;

// Errors of the platform itself: the request did not reach a handler, or its outcome is lost.

/// The requester's rights do not allow the command.
inline constexpr unsigned notAllowed = 0xfe0101;
/// Nobody listens at the address, or it cannot be connected to, or no handler is registered under
/// the route. The text says which.
inline constexpr unsigned noRoute = 0xfe0102;
/// No answer within the time given.
inline constexpr unsigned timedOut = 0xfe0103;
/// A limit of the connection or its user is reached (requests in flight, subscriptions,
/// connections, the length of a request).
inline constexpr unsigned tooMany = 0xfe0104;
/// The store could not take the change, or has not taken it yet: "not on disk yet: " and why says
/// that the change is made (or the answer knows of one) and will be written when it can be.
inline constexpr unsigned notStored = 0xfe0105;

}  // namespace nv::err
