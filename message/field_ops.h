/// Work on one field named by its UId, for code that does not know its type.
///
/// A message keeps each value in the one form that its type has, so the same few steps do for all
/// fourteen types. Bits 26 to 24 of a UId are not read. One of no type names no field.
#pragma once

#include <iosfwd>

#include "platform/message.h"

namespace nv {

/// Whether `msg` holds the field `uid`.
CONFKIT_API bool has(const message& msg, unsigned uid);

/// Removes the field `uid` from `*msg`, where it may be absent. Lists nothing as removed.
CONFKIT_API void remove(message* msg, unsigned uid);

/// Makes the field `uid` of `*dst` what it is in `src`: of equal value, or absent. Reads and writes
/// no removal list, except where `uid` names the list itself.
CONFKIT_API void copy(message* dst, const message& src, unsigned uid);

/// Writes `uid` as text: the id as the stream writes unsigned numbers, then the suffix of the type,
/// as in 16646149_u. Writes nothing at all for a `uid` of no type. Returns `os`, whose format it
/// leaves alone.
CONFKIT_API std::ostream& dumpUId(std::ostream& os, unsigned uid);

}  // namespace nv
