#include "tools/confctl/target.h"

#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include "tools/confctl/failure.h"

namespace confctl {
namespace {

namespace fs = std::filesystem;

/// A bus directory with two services, one of them with a name, and things that are none.
class Targets : public testing::Test {
 protected:
  Targets() {
    std::string pattern = (fs::temp_directory_path() / "confctl-XXXXXX").string();
    bus_ = mkdtemp(pattern.data());
    for (const char* file : {"100.sock", "7.sock", "x.sock", "100.lock", "plain"}) {
      std::ofstream(bus_ / file).put('\n');
    }
    fs::create_symlink("100.sock", bus_ / "hosts");
    fs::create_symlink("100.sock", bus_ / "v1.2");
    fs::create_symlink("elsewhere", bus_ / "stray");
  }
  ~Targets() override { fs::remove_all(bus_); }

  fs::path bus_;
};

using Route = std::vector<std::uint32_t>;

TEST_F(Targets, AreFoundByAddressOrNameWithAndWithoutAHandler) {
  const std::pair<std::string, Route> table[] = {
      {"100", {100}}, {"hosts", {100}}, {"100.3", {100, 3}},  {"hosts.3", {100, 3}},
      {"8", {8}},     {"v1.2", {100}},  {"v1.2.3", {100, 3}}, {"4294967295.0", {0xffffffff, 0}},
  };
  for (const auto& [text, route] : table) EXPECT_EQ(findTarget(bus_, text).route, route) << text;
}

TEST_F(Targets, ThatAreNotThereAreRefused) {
  for (const std::string text : {"", "other", "plain", "stray", "hosts.x", "hosts.", ".3",
                                 "../hosts", "4294967296", "hosts.3.3", "-1"}) {
    try {
      findTarget(bus_, text);
      ADD_FAILURE() << text << " was found";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status, Exit::noService) << text;
    }
  }
}

TEST_F(Targets, AreListedByAddressWithTheirNames) {
  fs::remove(bus_ / "v1.2");
  const auto services = findServices(bus_);
  ASSERT_EQ(services.size(), 2u);
  EXPECT_EQ(services[0].address, 7u);
  EXPECT_EQ(services[0].name, "");
  EXPECT_EQ(services[1].address, 100u);
  EXPECT_EQ(services[1].name, "hosts");
  EXPECT_THROW(findServices(bus_ / "nowhere"), Failure);
}

}  // namespace
}  // namespace confctl
