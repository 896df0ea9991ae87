#include "containers/managed_configs.h"

#include <algorithm>
#include <vector>

#include "platform/keys.h"

namespace nv {

namespace {

flat_message merged(const message& entry, const message& request) {
  message out = entry, prior;
  merge(out, request, prior);
  return out.flat();
}

}  // namespace

void mergeManaged(message& full, const message& request, std::uint32_t party) {
  auto entries = full.get(key::managedConfigs);
  const auto own = std::find_if(entries.begin(), entries.end(), [party](const auto& entry) {
    return message(entry).get(key::managedId) == party;
  });

  if (request.get(key::absent) == 0) {
    if (own != entries.end())
      *own = merged(message(*own), request);
    else
      entries.push_back(merged({}, request));
  } else if (own != entries.end()) {
    entries.erase(own);
  }

  if (entries.empty())
    full.remove(key::managedConfigs);
  else
    full.insert(key::managedConfigs, entries);
}

}  // namespace nv
