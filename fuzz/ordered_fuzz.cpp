// A store with any chain, then commands to an ordered map and to a holder, with any values. Each
// input is a number of records and the records, then a list of commands: a code, who it is for and
// from, a number of fields; a field is a key and a value.
#include <iostream>
#include <iterator>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/require.h"
#include "platform/commands.h"
#include "testing/kit.h"
#include "tests/support/test_holder.h"
#include "tests/support/test_map.h"
#include "tests/support/verify.h"

namespace {

using namespace nv;
using fuzz::Input, fuzz::require;

constexpr u32_id kNumber = test::field::number;
constexpr u32_array_id kOlderOrder{1};
constexpr const char* kRules = "rules";

message judge(std::uint32_t number) { return number == 13 ? failedMsg("thirteen") : message(); }

struct Rules : test::TestOmap {
  explicit Rules(testkit::Recorder& seen) : TestOmap(seen, kRules, 0, 40) {
    onCheckRestore = onCheckAdd = [](OObject* obj) { return judge(test::item(obj).config.number); };
    onCheckChange = [this](OObject*, OObject* obj) { return onCheckAdd(obj); };
  }
  /// What of the order survives a restart.
  std::vector<message> storable() {
    std::vector<message> all;
    for (OObject* obj = getNextObj(nullptr); obj != nullptr; obj = getNextObj(obj)) {
      all.push_back({{key::objectId, obj->id}});
      obj->getConfig(all.back(), 5);
      if (!obj->isStorable()) all.pop_back();
    }
    return all;
  }
};

struct Settings : test::TestHolder {
  explicit Settings(testkit::Recorder& seen) : TestHolder(seen, "settings") {
    merges = takesManaged = true;
    onCheckChange = [](Object*, Object* obj) { return judge(test::item(obj).config.number); };
  }
  const test::HeldItem& now() { return test::held(object); }
};

struct Process {
  explicit Process(testkit::MemoryStores& stores)
      : kit(stores), rules(kit.seen()), settings(kit.seen()) {
    std::cout.rdbuf(nullptr);
    rules.init();
    require(test::verify(rules).empty());
    settings.init();
  }
  testkit::Kit kit;
  Rules rules;
  Settings settings;
};

constexpr u32_id kNumbers[] = {key::objectId, key::nextId,   key::startId, key::maxCount,
                               key::rights,   key::getFlags, key::absent,  key::managedId};

void addField(message& m, Input& input) {
  const unsigned which = input.byte();
  const unsigned k = which >> 3;
  switch (which & 7) {
    case 0: m.insert(test::field::isVolatile, (input.byte() & 1) != 0); return;
    case 1: m.insert(key::dynamic, (input.byte() & 1) != 0); return;
    case 2: m.append(kOlderOrder, input.number()); return;
    case 3: m.insert(kNumber, input.number()); return;
    case 4: m.insert(key::managedConfigs, {message{{key::managedId, input.number()}}}); return;
    default: m.insert(kNumbers[k % std::size(kNumbers)], input.number()); return;
  }
}

void addFields(message& m, Input& input) {
  for (unsigned fields = input.byte() & 7; fields > 0; --fields) addField(m, input);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  constexpr unsigned codes[] = {cmd::addObj, cmd::setObj, cmd::moveObj, cmd::removeObj,
                                cmd::getObj, cmd::getAll, cmd::set,     cmd::get};
  Input input(data, size);
  testkit::MemoryStores stores;
  const unsigned records = input.byte() & 15;
  for (unsigned k = 0; k < records; ++k) {
    message record;
    const unsigned id = input.number();
    addFields(record, input);
    stores.set(kRules, id, record);
  }
  const std::size_t found = stores.records(kRules).size();
  std::vector<message> rules;
  test::ElementConfig settings;
  std::vector<flat_message> parties;
  {
    Process process(stores);
    process.kit.settle();
    require(stores.records(kRules).size() >= found);  // none was removed
    while (!input.empty()) {
      const unsigned code = codes[input.byte() & 7];
      const unsigned how = input.byte();
      if ((how & 6) == 6) process.rules.setAutoStore((how & 8) != 0);
      message cmd{{key::command, code}};
      addFields(cmd, input);
      const bool isSet = code == cmd::set || code == cmd::get;
      Handler& to = isSet ? static_cast<Handler&>(process.settings) : process.rules;
      process.kit.ask(to, cmd, (how & 1) != 0 ? testkit::user() : testkit::Requester{});
      require(test::verify(process.rules).empty());
    }
    process.rules.setAutoStore(true);
    process.kit.settle();
    rules = process.rules.storable();
    settings = process.settings.now().config;
    parties = process.settings.now().managed;
  }
  Process again(stores);
  if (records == 0) require(again.rules.storable() == rules);
  if (settings.isVolatile) return 0;
  require(again.settings.now().config == settings && again.settings.now().managed == parties);
  return 0;
}
