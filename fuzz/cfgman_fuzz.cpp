// Commands to an ordered, stored configuration manager, made of the fields that it looks at, with
// any values, and restarts. Each input is a list of steps: a command code, a user, a number of
// fields, each a key and a value; or a code that ends the process.
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cfgman/cfg_handler.h"
#include "cfgman/cfgman.h"
#include "cfgman/item.h"
#include "cfgman/iterator.h"
#include "cfgman/run_task.h"
#include "fuzz/input.h"
#include "fuzz/require.h"
#include "platform/commands.h"
#include "testing/kit.h"
#include "tests/support/cfgman_faults.h"

namespace {

using namespace nv;
using fuzz::Input;
using fuzz::require;

constexpr string_id kText{1};
constexpr u32_id kNumber{2};
constexpr unsigned kRefused = 13;

/// One life of the manager. Lives on one set of stores follow one another.
class Process {
 public:
  explicit Process(testkit::MemoryStores& stores) : kit_(stores), manager_(&tasks_) {
    manager_.namePrefix = "item";
    manager_.configIds.insert(kText.uid());
    manager_.configIds.insert(kNumber.uid());
    manager_.apply = [](CfgMan*, CfgMan::Item*, message& cfg, vset<unsigned>&, message& reply) {
      if (cfg.get(kNumber) == kRefused) reply = failedMsg("no such number");
    };
    manager_.setHandler(5);
    manager_.setStore("items", true);
    run();
  }
  /// What it gave to the store is on disk.
  ~Process() { kit_.settle(); }

  void ask(const message& cmd, const testkit::Requester& who) {
    kit_.ask(*manager_.handler, cmd, who);
  }
  void run() {
    while (tasks_.run()) continue;
    require(test::faultOf(manager_).empty());
  }
  void plant(bool dynamic) { manager_.plant(dynamic, nullptr); }

  std::vector<std::uint32_t> order() {
    std::vector<std::uint32_t> ids;
    for (const auto* item : manager_) ids.push_back(item->id);
    return ids;
  }
  /// What must survive the process.
  std::map<std::uint32_t, std::string> storedTexts() {
    std::map<std::uint32_t, std::string> all;
    for (const auto* item : manager_)
      if (item->store) all[item->id] = item->config.get(kText);
    return all;
  }
  /// Of an item that exists; it must.
  std::string textOf(std::uint32_t id) const {
    const auto* const item = manager_.find(id);
    require(item != nullptr && item->exists());
    return item->config.get(kText);
  }

 private:
  testkit::Kit kit_;
  CfgMan::RunTask tasks_;
  CfgMan manager_;
};

/// Ends the process and starts another. What was stored is there again, and once more after a start
/// without changes in between, in the same order.
void restart(std::unique_ptr<Process>& process, testkit::MemoryStores& stores) {
  const auto texts = process->storedTexts();
  std::vector<std::uint32_t> order;
  for (const bool isFirst : {true, false}) {
    process.reset();
    process = std::make_unique<Process>(stores);
    require(isFirst || process->order() == order);
    order = process->order();
  }
  for (const auto& [id, text] : texts) require(process->textOf(id) == text);
  for (const auto& [id, record] : stores.records("items"))
    require(id == kHeadId || process->textOf(id) == record.get(kText));
}

constexpr u32_id kNumbers[] = {key::objectId, key::nextId,   key::nextId,      key::absent,
                               key::startId,  key::maxCount, key::getFlags,    key::rights,
                               kNumber,       key::command,  key::replyMarker, key::managedId};
constexpr bool_id kFlags[] = {key::dynamic, key::cfgFlagA, key::stateFlag, key::replaceState};
constexpr u32_array_id kArrays[] = {key::requester, key::route, key::removals};
constexpr string_id kTexts[] = {key::name, kText, key::cfgText};
constexpr std::uint32_t kUids[] = {key::name.uid(),    key::nextId.uid(),   key::absent.uid(),
                                   key::dynamic.uid(), key::objectId.uid(), kNumber.uid(),
                                   0x38fe0005,         0x0ffe0005};

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
  auto process = std::make_unique<Process>(stores);
  while (!input.empty()) {
    const auto code = codeOf(input.byte());
    if (code == kRestart) {
      restart(process, stores);
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
  process->run();
  restart(process, stores);
  return 0;
}
