#include "tests/support/verify.h"

namespace test {
namespace {

bool inRange(const AMap& map, std::uint32_t id) {
  return id >= map.ids.min() && id <= map.ids.max();
}

testing::AssertionResult fault(std::uint32_t id, const char* what) {
  return testing::AssertionFailure() << "object " << id << ": " << what;
}

}  // namespace

testing::AssertionResult verify(const AMap& map) {
  std::uint64_t inRangeCount = 0;
  for (const auto& [id, obj] : map.objects) {
    if (obj == nullptr) return fault(id, "null");
    if (obj->id != id) return fault(id, "stands under another id");
    if (id == nv::kNoId) return fault(id, "has no id");
    if (!inRange(map, id)) continue;
    ++inRangeCount;
    if (!map.ids.isAllocated(id)) return fault(id, "its id is free");
  }
  if (map.ids.used() != inRangeCount) {
    return testing::AssertionFailure()
           << map.ids.used() << " ids for " << inRangeCount << " objects";
  }
  for (const std::uint32_t id : map.dynamicIds) {
    if (!map.objects.contains(id)) return fault(id, "dynamic and not there");
  }
  if (!map.pending.empty() && (map.store == nullptr || map.autoStore)) {
    return testing::AssertionFailure() << "writes are pending that nobody put off";
  }
  return testing::AssertionSuccess();
}

}  // namespace test
