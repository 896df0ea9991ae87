/// A process with one container, and the commands that a client sends to it.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/keys.h"
#include "testing/kit.h"
#include "tests/support/test_element.h"
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

/// `Container` is made from the recorder of all calls and the arguments of `startWith`, the first
/// of which names its store.
template <class Container>
class ContainerTest : public ::testing::Test {
 protected:
  ~ContainerTest() override {
    // They hold what was local to the test.
    Element::onGet = {};
    Element::onSet = {};
    Element::onDelete = {};
    stop();
    Element::reset();
  }

  /// A process that starts; the container is constructed and not initialised.
  template <class... Args>
  void startWith(Args... args) {
    stop();
    Element::reset();
    kit = std::make_unique<nv::testkit::Kit>(stores);
    map = std::make_unique<Container>(kit->seen(), args...);
  }
  /// The process ends, with everything that it gave to the store on disk.
  void stop() {
    map.reset();
    if (kit) kit->settle();
    kit.reset();
    EXPECT_EQ(Element::alive, 0);
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
  /// Loads the container and returns what it printed.
  std::string initPrints() {
    testing::internal::CaptureStdout();
    map->init();
    EXPECT_TRUE(verify(*map));
    return testing::internal::GetCapturedStdout();
  }
  std::string line() const { return kit->seen().line(); }

  nv::testkit::MemoryStores stores;
  std::unique_ptr<nv::testkit::Kit> kit;
  std::unique_ptr<Container> map;
};

/// A container of objects with ids 1 to 100 in the store "items".
template <class Container>
class MapTest : public ContainerTest<Container> {
 protected:
  using Base = ContainerTest<Container>;
  using Base::ask, Base::kit, Base::map, Base::stores;

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
  std::uint32_t add(Fields fields = {}) {
    return ask(nv::cmd::addObj, fields).get(nv::key::objectId);
  }
  auto& at(std::uint32_t id) { return item(map->objects.get(id)); }
  /// The ids on disk, "1 2 3".
  std::string stored() {
    kit->settle();
    std::string all;
    for (const auto& [id, record] : stores.records("items"))
      all += (all.empty() ? "" : " ") + std::to_string(id);
    return all;
  }
  /// A page of all objects by their ids, "1 2 3 next 4".
  std::string page(Fields fields = {}) {
    const nv::message reply = ask(nv::cmd::getAll, fields);
    if (nv::isError(reply))
      return reply == nv::errorMsg(nv::err::noSuchObject, "") ? "none" : "error";
    EXPECT_TRUE(reply.has(nv::key::objects));
    std::string ids;
    for (const auto entry : reply.view(nv::key::objects))
      ids += (ids.empty() ? "" : " ") + std::to_string(nv::message(entry).get(nv::key::objectId));
    if (reply.has(nv::key::startId)) ids += " next " + std::to_string(reply.get(nv::key::startId));
    return ids;
  }
};

inline nv::message refused(unsigned code) { return nv::errorMsg(code, ""); }

/// The configuration of a test element as it writes it.
inline nv::message configured(const ElementConfig& config, Fields before = {}) {
  nv::message m(before);
  config.write(m);
  return m;
}

/// Elements whose entries in a page have exactly this many bytes.
inline void padTo(std::size_t size) {
  Element::onGet = [size](Object&, nv::message& out, std::uint32_t) {
    out.insert(field::padding, std::vector<unsigned char>());
    const std::size_t base = out.max_length();
    ASSERT_LE(base, size);
    out.insert(field::padding, std::vector<unsigned char>(size - base));
    ASSERT_EQ(out.max_length(), size);
  };
}

}  // namespace test

namespace nv {
inline void PrintTo(const message& m, std::ostream* os) { m.dump2(*os, "", 0); }
}  // namespace nv
