/// How a service process begins and ends.

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "platform/commands.h"
#include "tests/support/raw_client.h"
#include "tests/support/text_map.h"
#include "tests/system/service_process.h"

namespace nv::testkit {
namespace {

/// It ends at once, and has said so in one line.
void expectRefused(ServiceProcess& service, const std::string& line) {
  EXPECT_FALSE(service.start());
  EXPECT_EQ(service.wait(), 1);
  EXPECT_EQ(service.said(), "texts: " + line + "\n");
}

TEST(Life, ASecondInstanceSaysWhatIsTakenInOneLineAndTakesItWhenTheFirstIsDead) {
  const Place place, elsewhere;
  const auto link = place.bus() / "texts", otherStore = place.folder() / "other.db";
  const std::string ofAnother = " is taken by another process", bus = place.bus().string();
  ServiceProcess first(place), sameAddress(place, otherStore), sameName(place, otherStore),
      sameStore(elsewhere, place.storeFile());
  ASSERT_TRUE(first.start());
  expectRefused(sameAddress, "address 100 on " + bus + ofAnother);
  sameName.setAddress(kAddress + 1);
  expectRefused(sameName, "the name texts on " + bus + ofAnother);
  expectRefused(sameStore,
                "store: " + place.storeFile().string() + ": is in use by another process");
  EXPECT_FALSE(std::filesystem::exists(elsewhere.socket()));
  EXPECT_FALSE(std::filesystem::is_symlink(elsewhere.bus() / "texts"));
  EXPECT_EQ(std::filesystem::read_symlink(link), "100.sock");
  EXPECT_FALSE(std::filesystem::exists(place.bus() / "101.sock"));
  for (const auto& entry : std::filesystem::directory_iterator(place.folder()))
    EXPECT_FALSE(entry.path().filename().string().starts_with("other.db")) << entry.path();
  EXPECT_FALSE(isError(RawClient(place.socket()).ask(addText(1, "the first one still serves"))));

  EXPECT_EQ(first.end(SIGKILL), -SIGKILL);
  ASSERT_TRUE(std::filesystem::exists(place.socket()));
  EXPECT_FALSE(RawClient(place.socket()).connected());
  ASSERT_TRUE(sameName.start()) << sameName.said();
  EXPECT_EQ(std::filesystem::read_symlink(link), "101.sock");
  EXPECT_EQ(sameName.end(SIGTERM), 0);
  EXPECT_FALSE(std::filesystem::is_symlink(link));
  ASSERT_TRUE(first.start()) << first.said();
  EXPECT_TRUE(RawClient(place.socket()).connected());
  EXPECT_EQ(first.said(), "");
}

TEST(Life, AServiceRemovesNoFileUnderItsNameButItsOwnLink) {
  Place place;
  const auto name = place.bus() / "texts";
  ServiceProcess service(place);
  ASSERT_TRUE(service.start());
  std::filesystem::remove(name);
  std::filesystem::create_symlink("somewhere else", name);
  EXPECT_EQ(service.end(SIGTERM), 0);
  EXPECT_EQ(std::filesystem::read_symlink(name), "somewhere else");

  std::filesystem::remove(name);
  std::ofstream(name) << "precious";
  expectRefused(service, "cannot make " + name.string() + ": File exists");
  EXPECT_EQ(std::filesystem::file_size(name), 8U);
}

TEST(Life, AWrongArgumentIsNamedInOneLineAndHelpSaysHowToStart) {
  const std::string service = CONFKIT_EMULATOR " '" CONFKIT_TEST_SERVICE "' 0 100 ";
  const std::string noted = "texts: argument '", usage = "usage: ";
  const struct {
    std::string words, redirection;
    int status;
    std::string begin;
  } cases[] = {
      {"--help", "2>/dev/null", 0, usage},
      {"-h", "2>/dev/null", 0, usage},
      {"--bus /nowhere --help", "2>/dev/null", 0, usage},
      {"--stoer", "2>&1 >/dev/null", 1, noted + "--stoer': " + usage},
      {"--store", "2>&1 >/dev/null", 1, noted + "--store': " + usage},
      {"help", "2>&1 >/dev/null", 1, noted + "help': " + usage},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.words);
    const auto line = service + c.words + ' ' + c.redirection;
    std::string output;
    FILE* const pipe = popen(line.c_str(), "r");
    for (int byte; (byte = fgetc(pipe)) != EOF;) output += static_cast<char>(byte);
    EXPECT_EQ(WEXITSTATUS(pclose(pipe)), c.status);
    EXPECT_TRUE(output.starts_with(c.begin)) << output;
    if (c.status == 0)
      EXPECT_NE(output.find("(/var/lib/confkit/texts.db)\n"), output.npos) << output;
    else
      EXPECT_EQ(std::ranges::count(output, '\n'), 1) << output;
  }
}

}  // namespace
}  // namespace nv::testkit
