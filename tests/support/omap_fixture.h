/// A process with one ordered map, and the commands that a client sends to it.
#pragma once

#include <string>

#include "tests/support/container_fixture.h"
#include "tests/support/test_omap.h"

namespace test {

/// The chain that stored records make: "head>3 3>1 1>end". Ends where it leads back.
inline std::string chainOf(const nv::testkit::MemoryStores::Records& records) {
  std::string chain;
  std::set<std::uint32_t> passed;
  std::uint32_t id = nv::kHeadId;
  while (id != nv::kNoId && records.contains(id) && passed.insert(id).second) {
    const std::uint32_t next = records.at(id).get(nv::key::nextId, 0);
    chain += (chain.empty() ? "head" : ' ' + std::to_string(id)) + '>' +
             (next == nv::kNoId ? "end" : std::to_string(next));
    id = next;
  }
  return chain;
}

class AOmapTest : public MapTest<TestOmap> {
 protected:
  /// Adds an object for each id, in this order.
  void addAll(std::initializer_list<std::uint32_t> all) {
    for (const std::uint32_t id : all) add({{nv::key::objectId, id}});
  }
  /// The ids in the user's order, "3 1 2".
  std::string order() {
    std::string all;
    for (OObject* obj = map->getNextObj(nullptr); obj != nullptr; obj = map->getNextObj(obj))
      all += (all.empty() ? "" : " ") + std::to_string(obj->id);
    return all;
  }
  /// The chain on disk.
  std::string chain() {
    kit->settle();
    return chainOf(stores.records("items"));
  }
  void putRecord(std::uint32_t id, std::uint32_t next, std::uint32_t number = 0) {
    stores.set("items", id,
               {{nv::key::objectId, id}, {nv::key::nextId, next}, {field::number, number}});
  }
};

}  // namespace test
