/// How a service process begins and ends.

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

TEST(Life, SigtermEndsAServiceWhenAllThatItAcceptedIsStored) {
  constexpr std::uint32_t kTexts = 200;
  Place place;
  ServiceProcess service(place);
  ASSERT_TRUE(service.start());
  RawClient client(place.socket());
  for (std::uint32_t id = 1; id <= kTexts; ++id)
    client.send(addText(id, "text").insert(key::tag, id));
  std::uint32_t acknowledged = 0;
  const auto takeReply = [&] {
    const auto reply = client.receive();
    if (!reply) return false;
    EXPECT_EQ(reply->get(key::objectId), ++acknowledged);
    return true;
  };
  takeReply();
  kill(service.pid(), SIGTERM);
  while (takeReply()) {
  }
  EXPECT_EQ(service.wait(), 0);
  EXPECT_FALSE(std::filesystem::exists(place.socket()));
  EXPECT_EQ(service.said(), "");

  ASSERT_TRUE(service.start());
  client.connect(place.socket());
  EXPECT_EQ(client.ask(command(cmd::getCount)).get(key::count), acknowledged);
}

struct ServiceRun {
  std::string output;
  int status;
};

/// The service with these words on its command line; its output as the shell's `redirection` says.
ServiceRun runService(const std::string& words, const std::string& redirection) {
  const std::string service = CONFKIT_EMULATOR " '" CONFKIT_TEST_SERVICE "' 0 100 ";
  const auto line = service + words + ' ' + redirection;
  ServiceRun run;
  FILE* const pipe = popen(line.c_str(), "r");
  for (int c; (c = fgetc(pipe)) != EOF;) run.output += static_cast<char>(c);
  run.status = WEXITSTATUS(pclose(pipe));
  return run;
}

TEST(Life, AskedForHelpAServiceSaysHowToStartItAndEndsWell) {
  for (const char* words : {"--help", "-h", "--bus /nowhere --help"}) {
    const ServiceRun run = runService(words, "2>/dev/null");
    EXPECT_EQ(run.status, 0) << words;
    EXPECT_TRUE(run.output.starts_with("usage: ")) << run.output;
    EXPECT_NE(run.output.find("(/var/lib/confkit/texts.db)\n"), std::string::npos) << run.output;
  }
}

TEST(Life, AWrongArgumentIsNamedInOneLineOnTheErrorStream) {
  for (const char* word : {"--stoer", "--store", "help"}) {
    const ServiceRun run = runService(word, "2>&1 >/dev/null");
    EXPECT_EQ(run.status, 1) << word;
    EXPECT_TRUE(run.output.starts_with("texts: argument '" + std::string(word) + "': usage: "))
        << run.output;
    EXPECT_EQ(linesWith(run.output, ""), 1);
  }
}

}  // namespace
}  // namespace nv::testkit
