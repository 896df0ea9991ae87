// Writes what flat_message_fuzz begins with into a folder: each type alone, nested ones, ordinary
// records.
#include <cstdio>
#include <fstream>

#include "platform/keys.h"
#include "platform/message.h"
#include "tests/support/random_message.h"

namespace {

void save(const std::string& path, const nv::message& m) {
  std::ofstream out(path, std::ios::binary);
  const nv::byte_view flat = m.bytes();
  out.write(reinterpret_cast<const char*>(flat.data()), static_cast<std::streamsize>(flat.size()));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return std::fprintf(stderr, "usage: %s <folder>\n", argv[0]), 2;
  const std::string folder = std::string(argv[1]) + "/";
  nv::testkit::random_source random(1);
  for (std::uint32_t type = 0; type < 32; ++type) {
    nv::withId(type << 27 | 1, [&](auto id) {
      nv::message m;
      m.insert(id, random.value<decltype(id)>());
      save(folder + "type" + std::string(nv::typeSuffix(id.uid())), m);
    });
  }
  const nv::message record{{nv::key::objectId, 7}, {nv::key::name, "printer"}};
  save(folder + "record", record);
  save(folder + "page", {{nv::key::objects, {record, record, nv::message()}}});
  save(folder + "nested", {{nv::key::defaultCfg, nv::message{{nv::key::defaultCfg, record}}}});
  save(folder + "mixed", random.someMessage(30, 4));
  save(folder + "empty", nv::message());
}
