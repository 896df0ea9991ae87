// Writes what the fuzz targets of messages and frames begin with into a folder each.
#include <cstdio>
#include <fstream>

#include "platform/commands.h"
#include "tests/support/random_message.h"
#include "tests/support/raw_client.h"
#include "tests/support/text_map.h"

namespace {

using namespace nv;

void save(const std::string& path, byte_view bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

/// Each type alone, nested ones, ordinary records.
void saveMessages(const std::string& folder) {
  testkit::random_source random(1);
  for (std::uint32_t type = 0; type < 32; ++type) {
    withId(type << 27 | 1, [&](auto id) {
      message m;
      m.insert(id, random.value<decltype(id)>());
      save(folder + "type" + std::string(typeSuffix(id.uid())), m.bytes());
    });
  }
  const message record{{key::objectId, 7}, {key::name, "printer"}};
  const message nested{{key::defaultCfg, message{{key::defaultCfg, record}}}};
  save(folder + "record", record.bytes());
  save(folder + "page", message{{key::objects, {record, record, message()}}}.bytes());
  save(folder + "nested", nested.bytes());
  save(folder + "mixed", random.someMessage(30, 4).bytes());
  save(folder + "empty", {});
}

message command(unsigned code, std::uint32_t tag, std::uint32_t id) {
  return message{{key::command, code}, {key::tag, tag}, {key::objectId, id}}.insert(key::route,
                                                                                    {100});
}

/// What a client says in a session.
void saveSessions(const std::string& folder) {
  const auto session = [&](const char* name, const std::vector<message>& requests) {
    std::vector<unsigned char> bytes;
    for (const auto& request : requests)
      for (const auto byte : testkit::frameOf(request)) bytes.push_back(byte);
    save(folder + name, bytes);
  };
  const auto add = command(cmd::addObj, 2, 7).insert(testkit::kText, "seven");
  const auto set = command(cmd::setObj, 3, 7).insert(testkit::kText, "VII");
  session("add_set_remove", {add, set, command(cmd::removeObj, 4, 7)});
  session("reads", {add, command(cmd::getObj, 3, 7), command(cmd::getAll, 4, 0),
                    command(cmd::getCount, 5, 0), command(cmd::getUndo, 6, 0)});
  session("subscription", {command(cmd::subscribe, 1, 0), add, set, command(cmd::unsubscribe, 4, 1),
                           command(cmd::routeGone, 5, 0)});
  session("forged", {message(add)
                         .insert(key::requester, {1, 2})
                         .insert(key::rights, kSystemRights)
                         .insert(key::frameKind, 1)});
  session("nested", {message(add).insert(key::defaultCfg, set.flat())});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return std::fprintf(stderr, "usage: %s <messages> <frames>\n", argv[0]), 2;
  saveMessages(std::string(argv[1]) + "/");
  saveSessions(std::string(argv[2]) + "/");
}
