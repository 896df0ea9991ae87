/// One field of an update merged into a state, with its undo.
#pragma once

#include "platform/message.h"

namespace nv {

/// Applies the field `uid` of `update` to `target` and notes in `undo` what takes it back. True
/// when the field differs: it is added, removed, or held by both with different values.
///
/// `update` sets the field by holding it and removes it by listing the whole of `uid`, bits 26 to
/// 24 included, in `key::removals`; a field that it holds is never removed. A field that it neither
/// holds nor lists stays. Arrays and nested messages are single values here.
///
/// What a change writes, in this order except where the field is added, where `target` is first:
///
/// | the field is | into `undo`                        | into `target`     |
/// |--------------|------------------------------------|-------------------|
/// | added        | `uid` appended to the removal list | the updated value |
/// | removed      | the value of `current`             | nothing: it goes  |
/// | changed      | the value of `current`             | the updated value |
///
/// Either may be null and the result is the same. `target` may be `current` itself. Each value is
/// read when it is written, and replaces what stood there. A `uid` of no type changes nothing.
///
/// To apply an update, call this once for each key, `current` and `target` the state, with one
/// `undo` for all: merged into the new state over the same keys, `undo` brings the old one back.
/// Each key once, since its listing in `undo` is appended without a look at what is listed already.
CONFKIT_API bool merge(const message& current, const message& update, message* target,
                       message* undo, unsigned uid);

}  // namespace nv
