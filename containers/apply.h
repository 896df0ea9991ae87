/// How requests and records reach an element, and what becomes known of it: the steps that all
/// containers share. Event-loop thread only.
#pragma once

#include <cstdint>
#include <memory>

#include "containers/object.h"
#include "platform/handler.h"
#include "platform/message.h"

namespace nv {

/// How a container's elements take a message.
enum class ApplyMode {
  plain,  ///< the element is handed the message as it is
  merge,  ///< the element is handed its complete configuration with the message merged into it
};

inline ApplyMode applyMode(bool mergeOnSet) {
  return mergeOnSet ? ApplyMode::merge : ApplyMode::plain;
}

/// Applies a request or a record. `flags` are those of `setConfig`.
void apply(Object& obj, const message& in, std::uint32_t flags, ApplyMode mode);

/// Applies a set request and returns the earlier values of the fields that it changed, without what
/// it added. Plain mode returns nothing unless `undoable`.
message applySet(Object& obj, const message& request, ApplyMode mode, bool undoable);

/// What the element writes for `flags`.
message configOf(Object& obj, std::uint32_t flags);

/// The configuration of an element that was just made; deletes it.
message defaultConfig(std::unique_ptr<Object> fresh);

/// Makes `undo` a command with this code for object `id`.
void addressUndo(message& undo, unsigned code, std::uint32_t id);

/// Tells all subscribers of `handler` that object `id` was added, changed or removed.
void announce(Handler& handler, std::uint32_t id);

}  // namespace nv
