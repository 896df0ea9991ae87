/// A process with one configuration manager, and the commands that a client sends to it.
#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "cfgman/cfg_handler.h"
#include "cfgman/cfgman.h"
#include "cfgman/item.h"
#include "cfgman/item_order.h"
#include "cfgman/iterator.h"
#include "cfgman/link.h"
#include "cfgman/notify_guard.h"
#include "cfgman/run_task.h"
#include "cfgman/subscription.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "testing/kit.h"
#include "tests/support/id_lists.h"
#include "tests/support/names.h"

namespace nv {
inline void PrintTo(const message& m, std::ostream* os) { m.dump2(*os, "", 0); }
}  // namespace nv

namespace test {

using Fields = std::initializer_list<nv::field_value>;

inline message command(unsigned code, Fields fields = {}) {
  message m(fields);
  return std::move(m.insert(key::command, code));
}

/// `cm` has handler 5, the runner `tasks` of its own, and, from `start`, the store "items".
class CfgManTest : public ::testing::Test {
 protected:
  enum class Kind { unordered, ordered, unstored };

  CfgManTest() { start(Kind::unordered); }
  ~CfgManTest() override { stop(); }

  /// A process that starts, and has read its store.
  void start(Kind kind) {
    kind_ = kind;
    restart();
  }
  /// The same on an empty disk.
  void startEmpty(Kind kind) {
    stop();
    stores.clear();
    start(kind);
  }
  /// The process ends, with everything that it gave to the store on disk, and starts again.
  void restart() {
    stop();
    kit = std::make_unique<nv::testkit::Kit>(stores);
    tasks = CfgMan::RunTask();
    cm = std::make_unique<CfgMan>(&tasks);
    if (configure) configure();
    cm->setHandler(5);
    if (kind_ != Kind::unstored) cm->setStore("items", kind_ == Kind::ordered);
    runAll();
    kit->seen().clear();
  }
  void stop() {
    cm.reset();
    if (kit) kit->settle();
    kit.reset();
  }

  /// Runs all tasks, those that they post included.
  void runAll() {
    while (tasks.run()) continue;
  }

  /// Sends one command, lets it take effect, and returns the reply without its route; what else
  /// happened is in `line()` and `kit->seen()`.
  message ask(const message& cmd, const nv::testkit::Requester& who = {}) {
    kit->seen().clear();
    send(cmd, who);
    runAll();
    return reply();
  }
  message ask(unsigned code, Fields fields = {}, const nv::testkit::Requester& who = {}) {
    return ask(command(code, fields), who);
  }
  /// Sends one command and runs no task.
  void send(const message& cmd, const nv::testkit::Requester& who = {}) {
    kit->ask(*cm->handler, cmd, who);
  }
  /// The last reply without its route, empty when there is none.
  message reply() const {
    if (kit->seen().replies.empty()) return {};
    auto last = kit->seen().replies.back().reply;
    last.remove(key::route);
    return last;
  }
  std::uint32_t add(Fields fields = {}) { return ask(cmd::addObj, fields).get(key::objectId); }
  message set(std::uint32_t id, message fields) {
    return ask(fields.insert(key::command, cmd::setObj).insert(key::objectId, id));
  }
  message remove(std::uint32_t id) { return ask(cmd::removeObj, {{key::objectId, id}}); }
  /// An update that the service makes itself.
  void update(std::uint32_t id, message cfg) {
    cm->scheduleUpdate(id, std::move(cfg), {}, {}, {});
    runAll();
  }
  std::string line() const { return kit->seen().line(); }

  /// The ids in iteration order, "3 1 2", absent ones as "~4".
  std::string ids() const {
    std::string all;
    for (const auto* item : *cm)
      all += (all.empty() ? "" : " ") + std::string(item->exists() ? "" : "~") +
             std::to_string(item->id);
    return all;
  }
  /// The records on disk with the id that each names, "head>3 1>2 2 3>1".
  std::string stored() {
    kit->settle();
    std::string head, all;
    for (const auto& [id, record] : stores.records("items")) {
      const auto next = record.get(key::nextId, kNoId);
      const auto link = next == kNoId ? "" : ">" + std::to_string(next);
      if (id == kHeadId)
        head = "head" + link + " ";
      else
        all += (all.empty() ? "" : " ") + std::to_string(id) + link;
    }
    return head + all;
  }

  nv::testkit::MemoryStores stores;
  std::unique_ptr<nv::testkit::Kit> kit;
  CfgMan::RunTask tasks;
  std::unique_ptr<CfgMan> cm;
  /// Sets up `cm` in each process before it has a handler and a store.
  std::function<void()> configure;

 private:
  Kind kind_ = Kind::unordered;
};

}  // namespace test
