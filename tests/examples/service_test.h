/// What the tests of the example services share. A service runs in the testing kit: it is started
/// again on what it has stored, asked, and its file is read.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "cfgman/cfg_handler.h"
#include "cfgman/cfgman.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "testing/kit.h"
#include "tests/support/random.h"
#include "tests/support/temp_directory.h"

namespace cmd = nv::cmd;
namespace err = nv::err;
namespace fs = std::filesystem;
namespace key = nv::key;
using nv::message;
using nv::testkit::Kit;

/// "ok", or the text of the refusal.
inline std::string outcome(const message& reply) {
  return nv::isError(reply) ? nv::getError(reply) : "ok";
}

inline std::string contents(const fs::path& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

/// A request that takes a field away.
inline message without(std::uint32_t uid) {
  message removal;
  removal.insert_vector(key::removals, uid);
  return removal;
}

/// `Service` is a handler, or has a manager that is one.
template <class Service>
class ServiceTest : public ::testing::Test {
 protected:
  ~ServiceTest() override { service.reset(); }

  /// Ends the service, which has stored what it took, and makes a new one in a new process.
  template <class... Arguments>
  void make(Arguments&&... arguments) {
    if (kit) kit->settle();
    service.reset();
    kit.reset();
    kit = std::make_unique<Kit>(stores);
    service = std::make_unique<Service>(std::forward<Arguments>(arguments)...);
  }
  /// For a service that is a handler.
  void open(unsigned id) {
    service->init();
    nv::getLooper()->addHandler(id, service.get());
  }

  /// The reply, also when it takes a few passes; empty when none comes. What was seen before is
  /// forgotten.
  message ask(unsigned code, std::uint32_t id = nv::kNoId, message request = {},
              const nv::testkit::Requester& who = nv::testkit::user()) {
    request.insert(key::command, code);
    if (id != nv::kNoId) request.insert(key::objectId, id);
    kit->seen().clear();
    kit->ask(handler(), std::move(request), who);
    if (kit->seen().replies.empty()) kit->settle();
    return kit->seen().replies.empty() ? message() : kit->seen().replies.back().reply;
  }
  std::string add(const message& fields, std::uint32_t id = nv::kNoId) {
    return outcome(ask(cmd::addObj, id, fields));
  }
  std::string set(std::uint32_t id, const message& fields) {
    return outcome(ask(cmd::setObj, id, fields));
  }
  std::string move(std::uint32_t id, std::uint32_t next) {
    return outcome(ask(cmd::moveObj, id, {{key::nextId, next}}));
  }
  std::string remove(std::uint32_t id) { return outcome(ask(cmd::removeObj, id)); }
  /// Undoes the last request.
  std::string undo() {
    const auto request = kit->seen().undos.back().undo;
    return outcome(ask(request.get(key::command), nv::kNoId, request));
  }
  /// The ids of all objects in their order, "3 1 2".
  std::string ids() {
    std::string all;
    for (const auto& flat : ask(cmd::getAll).get(key::objects))
      all += (all.empty() ? "" : " ") + std::to_string(message(flat).get(key::objectId));
    return all;
  }
  /// Puts fields into the record of an object, as damage would.
  void damage(const std::string& store, std::uint32_t id, const message& fields) {
    kit->settle();
    auto record = stores.get(store, id);
    record.merge(fields);
    stores.set(store, id, record);
  }
  /// What the service's file says when the loop is about to sleep.
  std::string fileText() {
    kit->settle();
    return contents(file);
  }

  nv::Handler& handler() {
    if constexpr (requires { service->manager(); })
      return *service->manager().handler;
    else
      return *service;
  }

  const TempDirectory directory{TempDirectory::inMemory()};
  const fs::path file = directory / "file";
  nv::testkit::MemoryStores stores;
  std::unique_ptr<Kit> kit;
  std::unique_ptr<Service> service;
};

/// A shell script that stands in the place of a program while this lives.
class FakeProgram {
 public:
  FakeProgram(const TempDirectory& directory, const std::string& name, const std::string& script) {
    std::ofstream(directory / name) << "#!/bin/sh\n" << script;
    fs::permissions(directory / name, fs::perms(0755));
    setenv("PATH", (directory.path().string() + ":" + path_).c_str(), 1);
  }
  ~FakeProgram() { setenv("PATH", path_.c_str(), 1); }

 private:
  const std::string path_ = std::getenv("PATH");
};
