/// Updates put one on top of the other, field by field, with the removal list kept in step.
///
/// A message lists a UId when its removal list `key::removals` holds it whole, all 32 bits. Both
/// functions leave it there at most once if it stood there at most once before, read arrays and
/// nested messages as single values, and do nothing for a `uid` of no type.
#pragma once

#include "platform/message.h"

namespace nv {

/// Puts what the update `src` says of the field `uid` on top of what the earlier update `*dst` says
/// of it, so that `*dst` does what the two do one after the other: a value of `src` replaces value
/// and listing, a listing of `src` replaces the value and is listed also where `*dst` held none; a
/// field that `src` does not mention stays as it is. One that `src` both holds and lists is held.
CONFKIT_API void stack(message* dst, const message& src, unsigned uid);

/// Makes the update `*dst` agree with the complete message `src` for the field `uid`: a value of
/// `src` replaces value and listing; a field that `src` lacks is removed and listed if `*dst` held
/// it, and otherwise left as it is. The removal list of `src` is not read.
CONFKIT_API void remerge(message* dst, const message& src, unsigned uid);

}  // namespace nv
