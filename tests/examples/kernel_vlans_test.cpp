/// What is asked of the kernel, written down by a program that stands in the place of `ip`.

#include "examples/vlans/kernel_vlans.h"

#include "tests/examples/service_test.h"

namespace vlans {
namespace {

Vlan vlan(const std::string& name, std::uint32_t vid, const std::string& parent = "eth0") {
  return Vlan({{nv::key::name, name}, {kVid, vid}, {kParent, parent}});
}

class Kernel : public ::testing::Test {
 protected:
  /// Brings the VLANs to the kernel: what `ip` was asked for, a line each.
  std::string asked(const std::vector<Vlan>& vlans) {
    std::map<std::string, Vlan> wanted;
    for (const auto& one : vlans) wanted.emplace(one.name, one);
    fs::remove(said);
    fault = kernel.bring(wanted);
    return contents(said);
  }

  const TempDirectory directory;
  const fs::path said = directory / "said";
  const FakeProgram ip{directory, "ip",
                       "echo \"$@\" >>" + said.string() +
                           "\ncase \"$*\" in *broken*) echo 'No way.'; exit 2;; esac\n"};
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
  asked({vlan("broken", 1)});
  EXPECT_EQ(fault, "ip link add link eth0 name broken type vlan id 1: No way.");
  EXPECT_EQ(kernel.addDevices({"eth0", "broken"}), "ip link add broken type dummy: No way.");
}

}  // namespace
}  // namespace vlans
