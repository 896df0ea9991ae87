// Commands to an ordered, stored configuration manager, made of the fields that it looks at, with
// any values, and restarts. Each input is a list of steps: a command code, a user, a number of
// fields, each a key and a value; or a code that ends the process.
#include <iterator>
#include <memory>
#include <string>

#include "cfgman/cfg_handler.h"
#include "cfgman/cfgman.h"
#include "cfgman/iterator.h"
#include "cfgman/run_task.h"
#include "fuzz/input.h"
#include "fuzz/require.h"
#include "platform/commands.h"
#include "testing/kit.h"
#include "tests/support/cfgman_model.h"

namespace {

using namespace nv;
using fuzz::Input;
using fuzz::require;

/// One life of the manager beside its model. Lives on one set of stores follow one another.
class Process {
 public:
  Process(testkit::MemoryStores& stores, test::CfgManModel& model)
      : kit_(stores), stores_(stores), manager_(&tasks_), model_(model) {
    test::CfgService service;
    service.ordered = true;
    service.hook = test::CfgService::Hook::apply;
    service.namePrefix = "item";
    service.setUp(manager_);
    manager_.doCmd = [this](Handler*, const message& cmd) {
      if (isChange(cmd.get(key::command))) model_.command(cmd);
      manager_.defDoCmd(cmd);
    };
    manager_.setHandler(5);
    manager_.setStore("items", true);
    model_.restart(service);
    run();
  }
  ~Process() {
    run();
    kit_.settle();
    require(stores_.records("items") == model_.records);
  }

  void ask(const message& cmd, const testkit::Requester& who) {
    kit_.ask(*manager_.handler, cmd, who);
  }
  void run() {
    while (tasks_.run()) continue;
    model_.runAll();
    require(model_.difference(manager_).empty());
    model_.told.clear();
    model_.observed.clear();
  }
  void plant(bool dynamic) {
    manager_.plant(dynamic, nullptr);
    model_.plant(dynamic, false);
  }

 private:
  static bool isChange(unsigned code) {
    return code == cmd::addObj || code == cmd::setObj || code == cmd::set ||
           code == cmd::removeObj || code == cmd::moveObj;
  }

  testkit::Kit kit_;
  testkit::MemoryStores& stores_;
  CfgMan::RunTask tasks_;
  CfgMan manager_;
  test::CfgManModel& model_;
};

constexpr u32_id kNumbers[] = {key::objectId, key::nextId,      key::nextId,
                               key::absent,   key::startId,     key::maxCount,
                               key::getFlags, key::rights,      test::field::number,
                               key::command,  key::replyMarker, key::managedId};
constexpr bool_id kFlags[] = {key::dynamic, key::cfgFlagA, key::stateFlag, key::replaceState};
constexpr u32_array_id kArrays[] = {key::requester, key::route, key::removals};
constexpr string_id kTexts[] = {key::name, key::cfgText};
constexpr std::uint32_t kUids[] = {
    key::name.uid(),     key::nextId.uid(),         key::absent.uid(), key::dynamic.uid(),
    key::objectId.uid(), test::field::number.uid(), 0x38fe0005,        0x0ffe0005};

void addField(message& cmd, Input& input) {
  const unsigned which = input.byte();
  const unsigned k = which >> 3;
  switch (which & 7) {
    case 0: cmd.insert(kFlags[k % std::size(kFlags)], (input.byte() & 1) != 0); return;
    case 1: cmd.append(kArrays[k % std::size(kArrays)], input.number()); return;
    case 2: cmd.insert(kTexts[k % std::size(kTexts)], input.text()); return;
    case 3: cmd.append(key::removals, kUids[k % std::size(kUids)]); return;
    case 4: cmd.insert(key::name, "item" + std::to_string(input.number())); return;
    default: cmd.insert(kNumbers[k % std::size(kNumbers)], input.number()); return;
  }
}

constexpr unsigned kRestart = 1, kPlant = 2;

unsigned codeOf(unsigned byte) {
  constexpr unsigned codes[] = {cmd::addObj,  cmd::setObj,   cmd::removeObj, cmd::moveObj,
                                cmd::set,     cmd::getObj,   cmd::getAll,    cmd::get,
                                kRestart,     cmd::getCount, kPlant,         cmd::subscribe,
                                cmd::getUndo, cmd::routeGone};
  return byte < std::size(codes) ? codes[byte] : 0xfe0000 + byte;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Input input(data, size);
  testkit::MemoryStores stores;
  test::CfgManModel model;
  auto process = std::make_unique<Process>(stores, model);
  while (!input.empty()) {
    const auto code = codeOf(input.byte());
    if (code == kRestart) {
      process.reset();
      process = std::make_unique<Process>(stores, model);
      continue;
    }
    if (code == kPlant) {
      process->plant((input.byte() & 1) != 0);
      continue;
    }
    message cmd{{key::command, code}};
    // Low bits: who asks, and whether the updates wait for the next command.
    const unsigned how = input.byte();
    for (unsigned fields = input.byte() & 7; fields > 0; --fields) addField(cmd, input);
    process->ask(cmd, (how & 1) != 0 ? testkit::user() : testkit::Requester{});
    if ((how & 2) == 0) process->run();
  }
  process.reset();
  Process(stores, model).run();
  return 0;
}
