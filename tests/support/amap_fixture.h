/// A process with one object map, and the commands that a client sends to it.
#pragma once

#include <string>

#include "tests/support/container_fixture.h"
#include "tests/support/test_map.h"

namespace test {

class AMapTest : public MapTest<TestMap> {
 protected:
  /// The ids in the map, "1 2 3".
  std::string ids() const {
    std::string all;
    for (const auto& [id, obj] : map->objects) all += (all.empty() ? "" : " ") + std::to_string(id);
    return all;
  }
};

}  // namespace test
