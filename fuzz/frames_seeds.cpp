// Writes the first seeds of frames_fuzz into a folder: what a client says in a session.
#include <cstdio>
#include <fstream>

#include "platform/commands.h"
#include "tests/support/raw_client.h"
#include "tests/support/text_map.h"

namespace {

using namespace nv;
using Frames = std::vector<message>;

message command(unsigned code, std::uint32_t tag, std::uint32_t id) {
  return message{{key::command, code}, {key::tag, tag}, {key::objectId, id}}.insert(key::route,
                                                                                    {100});
}

void save(const std::string& path, const Frames& frames) {
  std::ofstream out(path, std::ios::binary);
  for (const auto& msg : frames) {
    const auto bytes = testkit::frameOf(msg);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return std::fprintf(stderr, "usage: %s <folder>\n", argv[0]), 2;
  const std::string folder = std::string(argv[1]) + "/";
  const auto add = command(cmd::addObj, 2, 7).insert(testkit::kText, "seven");
  const auto set = command(cmd::setObj, 3, 7).insert(testkit::kText, "VII");
  save(folder + "add_set_remove", {add, set, command(cmd::removeObj, 4, 7)});
  save(folder + "reads", {add, command(cmd::getObj, 3, 7), command(cmd::getAll, 4, 0),
                          command(cmd::getCount, 5, 0), command(cmd::getUndo, 6, 0)});
  save(folder + "subscription", {command(cmd::subscribe, 1, 0), add, set,
                                 command(cmd::unsubscribe, 4, 1), command(cmd::routeGone, 5, 0)});
  save(folder + "forged", {message(add)
                               .insert(key::requester, {1, 2})
                               .insert(key::rights, kSystemRights)
                               .insert(key::frameKind, 1)});
  save(folder + "nested", {message(add).insert(key::defaultCfg, set.flat())});
}
