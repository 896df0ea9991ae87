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
#include "tests/support/names.h"
#include "tests/support/test_element.h"
#include "tests/support/verify.h"

namespace test {

using Fields = std::initializer_list<nv::field_value>;

inline message command(unsigned code, Fields fields = {}) {
  message m(fields);
  m.insert(key::command, code);
  return m;
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
  message ask(const message& cmd, const nv::testkit::Requester& who = {}) {
    kit->seen().clear();
    message reply = kit->ask(*map, cmd, who);
    EXPECT_EQ(verify(*map), "");
    return reply;
  }
  message ask(unsigned code, Fields fields = {}, const nv::testkit::Requester& who = {}) {
    return ask(command(code, fields), who);
  }
  /// Loads the container and returns what it printed.
  std::string initPrints() {
    testing::internal::CaptureStdout();
    map->init();
    EXPECT_EQ(verify(*map), "");
    return testing::internal::GetCapturedStdout();
  }
  std::string line() const { return kit->seen().line(); }

  nv::testkit::MemoryStores stores;
  std::unique_ptr<nv::testkit::Kit> kit;
  std::unique_ptr<Container> map;
};

/// The configuration of a test element as it writes it.
inline message configured(const ElementConfig& config, Fields before = {}) {
  message m(before);
  config.write(m);
  return m;
}

}  // namespace test

namespace nv {
inline void PrintTo(const message& m, std::ostream* os) { m.dump2(*os, "", 0); }
}  // namespace nv
