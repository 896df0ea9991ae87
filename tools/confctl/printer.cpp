#include "tools/confctl/printer.h"

#include <algorithm>

#include "platform/keys.h"

namespace confctl {

nv::message Printer::shown(nv::message object) const {
  const auto leaveOut = [&](auto id) {
    const bool isNamed = std::ranges::any_of(
        names_.keys(), [id](const Dictionary::Key& key) { return key.uid == id.uid(); });
    if (!isNamed) object.remove(id);
  };
  if (object.get(nv::key::absent) == 0) leaveOut(nv::key::absent);
  if (object.get(nv::key::nextId) == nv::kNoId) leaveOut(nv::key::nextId);
  leaveOut(nv::key::stateFlag);
  return object;
}

}  // namespace confctl
