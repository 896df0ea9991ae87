/// What models of containers share: the rules of the service and of its elements.
#pragma once

#include <optional>
#include <string>

#include "platform/errors.h"
#include "platform/keys.h"
#include "platform/message.h"
#include "tests/support/test_element.h"

namespace test {

/// What a step should lead to: the reply of a command, all calls in their order, the undo record.
struct Expected {
  nv::message reply;
  std::string line;
  std::optional<nv::message> undo;
};

/// The rules of the service that the model stands for.
inline bool refusesConfig(const ElementConfig& config) { return config.text == "bad"; }
inline bool refusesRemove(const ElementConfig& config) { return config.number == 13; }
inline bool refusesRestore(const ElementConfig& config) { return config.number == 77; }
inline nv::message serviceRefusal() { return nv::errorMsg(0x1234, "the service says no"); }

inline bool isSystem(const nv::message& request) {
  return !request.has(nv::key::rights) || request.get(nv::key::rights) >= 0x80000000;
}

inline std::string nameOf(const ElementConfig& config) {
  return config.text.empty() ? "item" : config.text;
}

/// What the new configuration overwrote.
inline nv::message difference(const ElementConfig& before, const ElementConfig& after) {
  nv::message m;
  if (before.text != after.text) m.insert(field::text, before.text);
  if (before.number != after.number) m.insert(field::number, before.number);
  if (before.isVolatile != after.isVolatile) m.insert(field::isVolatile, before.isVolatile);
  if (before.isSilent != after.isSilent) m.insert(field::isSilent, before.isSilent);
  if (before.isFinal != after.isFinal) m.insert(field::isFinal, before.isFinal);
  return m;
}

inline bool isUndoable(const ElementConfig& config) {
  return !config.isFinal && !config.isVolatile;
}

}  // namespace test
