// Commands to an object map, made of the fields that it looks at, with any values. Each input is a
// list of commands: a code, a user, a number of fields; a field is a key and a value.
#include <iterator>

#include "fuzz/input.h"
#include "fuzz/text_process.h"

namespace {

using namespace nv;
using fuzz::Input;

constexpr u32_id kNumbers[] = {key::objectId,    key::startId,   key::maxCount, key::getFlags,
                               key::rights,      key::managedId, key::absent,   key::replyMarker,
                               key::maxPerReply, key::tag};
constexpr bool_id kFlags[] = {key::dynamic, key::settled};
constexpr u32_array_id kArrays[] = {key::requester, key::route, key::removals};

void addField(message& cmd, Input& input) {
  const unsigned which = input.byte();
  const unsigned k = which >> 3;
  switch (which & 7) {
    case 0: cmd.insert(kFlags[k % std::size(kFlags)], (input.byte() & 1) != 0); return;
    case 1: cmd.append(kArrays[k % std::size(kArrays)], input.number()); return;
    case 2: cmd.insert(testkit::kText, input.text()); return;
    case 3: cmd.insert(u32_id(testkit::kText.id()), input.number()); return;
    default: cmd.insert(kNumbers[k % std::size(kNumbers)], input.number()); return;
  }
}

unsigned codeOf(unsigned byte) {
  constexpr unsigned codes[] = {cmd::addObj,  cmd::setObj,   cmd::removeObj, cmd::getObj,
                                cmd::getAll,  cmd::getCount, cmd::subscribe, cmd::unsubscribe,
                                cmd::getUndo, cmd::describe, cmd::routeGone, cmd::moveObj};
  return byte < std::size(codes) ? codes[byte] : 0xfe0000 + byte;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  Input input(data, size);
  testkit::MemoryStores stores;
  std::map<std::uint32_t, std::string> texts;
  {
    fuzz::TextProcess process(stores);
    while (!input.empty()) {
      message cmd{{key::command, codeOf(input.byte())}};
      const auto who = (input.byte() & 1) != 0 ? testkit::user() : testkit::Requester{};
      for (unsigned fields = input.byte() & 7; fields > 0; --fields) addField(cmd, input);
      process.kit.ask(process.texts, cmd, who);
      process.verify();
      if ((input.byte() & 3) == 0) process.kit.settle();
    }
    process.kit.settle();
    texts = process.contents();
  }
  fuzz::requireSameAfterRestart(stores, texts);
  return 0;
}
