/// A process with one object map, with or without an order, and the commands that a client sends to
/// it.
#pragma once

#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/container_fixture.h"
#include "tests/support/test_map.h"

namespace test {

inline constexpr std::uint32_t kEnd = nv::kNoId, kHead = nv::kHeadId;

/// A container of objects with ids 1 to 100 in the store "items".
template <class Container>
class MapTest : public ContainerTest<Container> {
 protected:
  using Base = ContainerTest<Container>;
  using Base::ask, Base::kit, Base::map, Base::stores;
  static constexpr bool isOrdered = std::is_base_of_v<AOmap, Container>;

  MapTest() { start(); }

  void start(std::string_view storeName = "items", std::uint32_t minId = 1,
             std::uint32_t maxId = 100) {
    Base::startWith(storeName, minId, maxId);
  }
  /// The same with nothing stored yet.
  void startAnew() {
    Base::stop();
    stores.clear();
    start();
  }
  void restart() {
    start();
    map->init();
    kit->seen().clear();
  }
  std::uint32_t add(Fields fields = {}) { return ask(cmd::addObj, fields).get(key::objectId); }
  /// Adds an object for each id, in this order.
  void addAll(std::initializer_list<std::uint32_t> all) {
    for (const std::uint32_t id : all) add({{key::objectId, id}});
  }
  /// An item that is not in the map yet.
  static auto* make(std::uint32_t id, ElementConfig config = {}) {
    auto* made = &item(Container::newItem());
    made->id = id;
    made->config = std::move(config);
    return made;
  }
  /// Adds an item as the service does, at the end.
  auto put(std::uint32_t id, ElementConfig config = {}) {
    if constexpr (isOrdered)
      return map->add(make(id, std::move(config)), nullptr);
    else
      return map->add(make(id, std::move(config)), true);
  }
  void drop(std::uint32_t id) { map->remove(map->find(id)); }
  auto& at(std::uint32_t id) { return item(map->objects.get(id)); }

  static std::string joined(const std::vector<std::uint32_t>& ids) {
    std::string all;
    for (const std::uint32_t id : ids) all += (all.empty() ? "" : " ") + std::to_string(id);
    return all;
  }
  /// The ids in the user's order, or ascending.
  std::vector<std::uint32_t> ids() {
    std::vector<std::uint32_t> all;
    if constexpr (isOrdered) {
      for (auto* obj = map->getNextObj(nullptr); obj != nullptr; obj = map->getNextObj(obj))
        all.push_back(obj->id);
    } else {
      for (const auto* obj : *map) all.push_back(obj->id);
    }
    return all;
  }
  std::string order() { return joined(ids()); }
  /// The ids on disk, "1 2 3".
  std::string stored() {
    kit->settle();
    std::vector<std::uint32_t> all;
    for (const auto& [id, record] : stores.records("items")) all.push_back(id);
    return joined(all);
  }
  /// Seen by a map that is started later.
  void putRecord(std::uint32_t id, Fields fields = {}) {
    message record(fields);
    stores.set("items", id, record.insert(key::objectId, id));
  }
  /// A page of all objects by their ids, "1 2 3 next 4".
  std::string page(Fields fields = {}) {
    const message reply = ask(cmd::getAll, fields);
    if (nv::isError(reply)) return reply == nv::errorMsg(err::noSuchObject, "") ? "none" : "error";
    EXPECT_TRUE(reply.has(key::objects));
    std::vector<std::uint32_t> all;
    for (const auto entry : reply.view(key::objects))
      all.push_back(message(entry).get(key::objectId));
    if (!reply.has(key::startId)) return joined(all);
    return joined(all) + " next " + std::to_string(reply.get(key::startId));
  }
};

using AMapTest = MapTest<TestMap>;

/// The chain that stored records make: "head>3 3>1 1>end". Ends where it leads back.
inline std::string chainOf(const nv::testkit::MemoryStores::Records& records) {
  std::string chain;
  std::set<std::uint32_t> passed;
  std::uint32_t id = kHead;
  while (id != kEnd && records.contains(id) && passed.insert(id).second) {
    const std::uint32_t next = records.at(id).get(key::nextId, 0);
    chain += (chain.empty() ? "head" : ' ' + std::to_string(id)) + '>' +
             (next == kEnd ? "end" : std::to_string(next));
    id = next;
  }
  return chain;
}

class AOmapTest : public MapTest<TestOmap> {
 protected:
  /// The chain on disk.
  std::string chain() {
    kit->settle();
    return chainOf(stores.records("items"));
  }
};

/// What all kinds of maps do. The line leaves out what ordered maps add to it: places, and the
/// head's record.
template <class Container>
class EachMapTest : public MapTest<Container> {
 protected:
  std::string line() const {
    std::string line = this->kit->seen().line();
    for (const std::string extra : {">end", ", store 4294967294"})
      for (auto at = line.find(extra); at != line.npos; at = line.find(extra))
        line.erase(at, extra.size());
    return line;
  }
};
using Maps = ::testing::Types<TestMap, TestOmap>;

inline message refused(unsigned code) { return nv::errorMsg(code, ""); }

/// Elements whose entries in a page have exactly this many bytes, and that of `longer` four more.
inline void padTo(std::size_t size, std::uint32_t longer = 0) {
  Element::onGet = [=](Object& obj, message& out, std::uint32_t) {
    const std::size_t wanted = obj.id == longer ? size + 4 : size;
    out.insert(field::padding, std::vector<unsigned char>());
    const std::size_t base = out.max_length();
    ASSERT_LE(base, wanted);
    out.insert(field::padding, std::vector<unsigned char>(wanted - base));
    ASSERT_EQ(out.max_length(), wanted);
  };
}

}  // namespace test
