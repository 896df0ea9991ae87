/// A process with one object map, and the commands that a client sends to it.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/keys.h"
#include "testing/kit.h"
#include "tests/support/test_map.h"
#include "tests/support/verify.h"

namespace test {

using Fields = std::initializer_list<nv::field_value>;

inline nv::message command(unsigned code, Fields fields = {}) {
  nv::message m(fields);
  m.insert(nv::key::command, code);
  return m;
}

inline nv::testkit::Requester userWithRights(std::uint32_t rights) {
  return {{0xcfff0001}, rights};
}

/// `map` keeps ids 1 to 100 in the store "items".
class AMapTest : public ::testing::Test {
 protected:
  AMapTest() { start(); }
  ~AMapTest() override {
    stop();
    Element::reset();
  }

  /// A process that starts; the map is constructed and not initialised.
  void start(std::string_view storeName = "items", std::uint32_t minId = 1,
             std::uint32_t maxId = 100) {
    stop();
    Element::reset();
    kit = std::make_unique<nv::testkit::Kit>(stores);
    map = std::make_unique<TestMap>(kit->seen(), storeName, minId, maxId);
  }
  /// The process ends, with everything that it gave to the store on disk.
  void stop() {
    map.reset();
    if (kit) kit->settle();
    kit.reset();
    EXPECT_EQ(Element::alive, 0);
  }
  void restart() {
    start();
    map->init();
    kit->seen().clear();
  }

  /// Sends one command and returns the reply; what else happens is in `line()` and `kit->seen()`.
  nv::message ask(const nv::message& cmd, const nv::testkit::Requester& who = {}) {
    kit->seen().clear();
    nv::message reply = kit->ask(*map, cmd, who);
    EXPECT_TRUE(verify(*map));
    return reply;
  }
  nv::message ask(unsigned code, Fields fields = {}, const nv::testkit::Requester& who = {}) {
    return ask(command(code, fields), who);
  }
  std::uint32_t add(Fields fields = {}) {
    return ask(nv::cmd::addObj, fields).get(nv::key::objectId);
  }
  std::string line() const { return kit->seen().line(); }
  Item& at(std::uint32_t id) { return item(map->objects.get(id)); }
  /// The ids in the map, "1 2 3".
  std::string ids() const {
    std::string all;
    for (const auto& [id, obj] : map->objects) all += (all.empty() ? "" : " ") + std::to_string(id);
    return all;
  }
  /// The ids on disk, "1 2 3".
  std::string stored() {
    kit->settle();
    std::string all;
    for (const auto& [id, record] : stores.records("items"))
      all += (all.empty() ? "" : " ") + std::to_string(id);
    return all;
  }

  nv::testkit::MemoryStores stores;
  std::unique_ptr<nv::testkit::Kit> kit;
  std::unique_ptr<TestMap> map;
};

inline nv::message refused(unsigned code) { return nv::errorMsg(code, ""); }

/// The configuration of a test element as it writes it.
inline nv::message configured(const ElementConfig& config, Fields before = {}) {
  nv::message m(before);
  config.write(m);
  return m;
}

}  // namespace test

namespace nv {
inline void PrintTo(const message& m, std::ostream* os) { m.dump2(*os, "", 0); }
}  // namespace nv
