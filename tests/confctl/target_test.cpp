#include "tools/confctl/target.h"

#include <fstream>

#include <gtest/gtest.h>

#include "tests/support/temp_directory.h"
#include "tools/confctl/failure.h"

namespace confctl {
namespace {

namespace fs = std::filesystem;

/// A bus directory with two services, one of them with a name, and things that are none.
class Targets : public testing::Test {
 protected:
  Targets() {
    for (const char* file : {"100.sock", "7.sock", "x.sock", "100.lock", "plain"})
      std::ofstream(bus / file).put('\n');
    fs::create_symlink("100.sock", bus / "v1.2");
    fs::create_symlink("elsewhere", bus / "stray");
  }
  const TempDirectory bus;
};

TEST_F(Targets, AreFoundByAddressOrNameWithAndWithoutAHandler) {
  const std::pair<std::string, std::vector<std::uint32_t>> table[] = {
      {"100", {100}},  {"100.3", {100, 3}},  {"8", {8}},
      {"v1.2", {100}}, {"v1.2.3", {100, 3}}, {"4294967295.0", {0xffffffff, 0}},
  };
  for (const auto& [text, route] : table)
    EXPECT_EQ(findTarget(bus.path(), text).route, route) << text;
  for (const std::string text : {"", "other", "plain", "stray", "v1.2.x", "v1.2.", ".3", "./v1.2",
                                 "4294967296", "v1.2.3.3", "-1"}) {
    try {
      findTarget(bus.path(), text);
      ADD_FAILURE() << text << " was found";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status, Exit::noService) << text;
    }
  }
}

TEST_F(Targets, AreListedByAddressWithTheirNames) {
  std::string all;
  for (const auto& service : findServices(bus.path()))
    all += std::to_string(service.address) + " '" + service.name + "' ";
  EXPECT_EQ(all, "7 '' 100 'v1.2' ");
  EXPECT_THROW(findServices(bus / "nowhere"), Failure);
}

}  // namespace
}  // namespace confctl
