/// What is asked of the kernel, written down by a program that stands in the place of `ip`.

#include "examples/vlans/kernel_vlans.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/support/temp_directory.h"

namespace vlans {
namespace {

Vlan vlan(const std::string& name, std::uint32_t vid, const std::string& parent = "eth0") {
  return Vlan({{nv::key::name, name}, {kVid, vid}, {kParent, parent}});
}

class Kernel : public ::testing::Test {
 protected:
  Kernel() {
    std::ofstream(directory / "ip") << "#!/bin/sh\n"
                                    << "echo \"$@\" >>" << said << "\n"
                                    << "case \"$*\" in *broken*) echo 'No way.'; exit 2;; esac\n";
    std::filesystem::permissions(directory / "ip", std::filesystem::perms(0755));
    setenv("PATH", (directory.path().string() + ":" + path).c_str(), 1);
  }
  ~Kernel() override { setenv("PATH", path.c_str(), 1); }

  /// Brings the VLANs to the kernel: what `ip` was asked for, a line each.
  std::string asked(const std::vector<Vlan>& vlans) {
    std::map<std::string, Vlan> wanted;
    for (const auto& one : vlans) wanted.emplace(one.name, one);
    std::filesystem::remove(said);
    fault = kernel.bring(wanted);
    std::ostringstream text;
    text << std::ifstream(said).rdbuf();
    return text.str();
  }

  const std::string path = std::getenv("PATH");
  TempDirectory directory;
  const std::filesystem::path said = directory / "said";
  KernelVlans kernel;
  std::string fault;
};

TEST_F(Kernel, IsAskedForWhatIsDifferentAndDeletesFirst) {
  EXPECT_EQ(asked({vlan("a", 1), vlan("b", 2)}),
            "link add link eth0 name a type vlan id 1\nlink set a up\n"
            "link add link eth0 name b type vlan id 2\nlink set b up\n");
  EXPECT_EQ(asked({vlan("a", 1), vlan("b", 2)}), "") << "nothing is different";
  EXPECT_EQ(asked({vlan("b", 2, "eth1"), vlan("c", 1)}),
            "link delete a\nlink delete b\n"
            "link add link eth1 name b type vlan id 2\nlink set b up\n"
            "link add link eth0 name c type vlan id 1\nlink set c up\n");
  EXPECT_EQ(asked({}), "link delete b\nlink delete c\n");
  EXPECT_EQ(fault, "");
}

TEST_F(Kernel, SaysWhyItRefuses) {
  asked({vlan("broken", 1)});
  EXPECT_EQ(fault, "ip link add link eth0 name broken type vlan id 1: No way.");
  EXPECT_EQ(kernel.addDevices({"eth0", "broken"}), "ip link add broken type dummy: No way.");
}

}  // namespace
}  // namespace vlans
