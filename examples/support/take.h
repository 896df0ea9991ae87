/// Reading requests.
#pragma once

#include "platform/keys.h"
#include "platform/message.h"

namespace examples {

/// The value that `in` has for the field; `empty` when it lists the field as removed. When it says
/// nothing `value` stays as it is.
template <class Id, class Value>
void take(const nv::message& in, Id id, Value& value, const Value& empty = {}) {
  if (in.has(id))
    value = in.get(id);
  else if (in.hasElem(nv::key::removals, id.uid()))
    value = empty;
}

}  // namespace examples
