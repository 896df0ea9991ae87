/// Replacing a file: the old text or the new one, whatever goes wrong.

#include "examples/support/replace_file.h"

#include <csignal>

#include <sys/resource.h>

#include "tests/examples/service_test.h"

namespace examples {
namespace {

class ReplacedFile : public ::testing::Test {
 protected:
  ReplacedFile() { EXPECT_EQ(replaceFile(file, "old"), ""); }

  /// Why the text was not taken; the old one is still there then, and nothing else.
  std::string refused(const std::string& text,
                      const std::function<std::string(const fs::path&)>& check = {}) {
    const auto fault = replaceFile(file, text, check);
    EXPECT_EQ(contents(file), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), {}), 1);
    return fault;
  }

  const TempDirectory directory;
  const fs::path file = directory / "hosts";
  const std::string cannot = "cannot write " + file.string() + ": ";
};

TEST_F(ReplacedFile, AReaderOfTheOldFileKeepsItAndANewReaderHasTheNewOne) {
  std::ofstream(file.string() + ".new") << "what a torn write left, longer than what follows";
  std::ifstream reader(file);
  ASSERT_EQ(replaceFile(file, "new", [](const fs::path&) { return ""; }), "");
  std::string old;
  reader >> old;
  EXPECT_EQ(old, "old");
  EXPECT_EQ(contents(file), "new");
  EXPECT_FALSE(fs::exists(file.string() + ".new"));
}

TEST_F(ReplacedFile, AFullDiskLeavesTheOldFileAndSaysWhy) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{1000, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  const auto fault = refused(std::string(5000, 'x'));
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(fault, cannot + "File too large");
}

TEST_F(ReplacedFile, ALinkInThePlaceOfTheNewFileIsNotFollowed) {
  std::ofstream(directory / "precious") << "precious";
  fs::create_symlink("precious", file.string() + ".new");
  EXPECT_NE(replaceFile(file, "new"), "");
  EXPECT_EQ(contents(directory / "precious"), "precious");
}

TEST_F(ReplacedFile, ATextThatTheCheckRefusesDoesNotTakeThePlaceOfTheOldOne) {
  const auto refuse = [this](const fs::path& fresh) {
    return contents(fresh) + " after " + contents(file);
  };
  EXPECT_EQ(refused("new", refuse), cannot + "new after old");
  const auto nowhere = directory / "missing" / "hosts";
  EXPECT_EQ(replaceFile(nowhere, "x"),
            "cannot write " + nowhere.string() + ": No such file or directory");
}

}  // namespace
}  // namespace examples
