/// Replacing a file: the old text or the new one, whatever goes wrong.

#include "examples/support/replace_file.h"

#include <csignal>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace examples {
namespace {

namespace fs = std::filesystem;

class ReplacedFile : public ::testing::Test {
 protected:
  ReplacedFile() {
    auto name = (fs::temp_directory_path() / "hosts-file-XXXXXX").string();
    directory = mkdtemp(name.data());
    file = directory / "hosts";
  }
  ~ReplacedFile() override { fs::remove_all(directory); }

  std::string text() const {
    std::ostringstream all;
    all << std::ifstream(file).rdbuf();
    return all.str();
  }
  std::size_t filesThere() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
  }

  fs::path directory, file;
};

TEST_F(ReplacedFile, AReaderOfTheOldFileKeepsItAndANewReaderHasTheNewOne) {
  ASSERT_EQ(replaceFile(file, "old"), "");
  std::ifstream reader(file);
  ASSERT_EQ(replaceFile(file, "new"), "");
  std::string old;
  reader >> old;
  EXPECT_EQ(old, "old");
  EXPECT_EQ(text(), "new");
  EXPECT_EQ(filesThere(), 1U);
}

TEST_F(ReplacedFile, WhatATornWriteLeftIsOverwritten) {
  std::ofstream(file.string() + ".new") << "half a file, longer than what follows";
  ASSERT_EQ(replaceFile(file, "new"), "");
  EXPECT_EQ(text(), "new");
}

TEST_F(ReplacedFile, AFullDiskLeavesTheOldFileAndSaysWhy) {
  ASSERT_EQ(replaceFile(file, "old"), "");
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{1000, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  const auto error = replaceFile(file, std::string(5000, 'x'));
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(error, "cannot write " + file.string() + ": File too large");
  EXPECT_EQ(text(), "old");
  EXPECT_EQ(filesThere(), 1U);
}

TEST_F(ReplacedFile, ALinkInThePlaceOfTheNewFileIsNotFollowed) {
  std::ofstream(directory / "precious") << "precious";
  fs::create_symlink("precious", file.string() + ".new");
  EXPECT_NE(replaceFile(file, "new"), "");
  std::string precious;
  std::ifstream(directory / "precious") >> precious;
  EXPECT_EQ(precious, "precious");
}

TEST_F(ReplacedFile, AMissingDirectoryIsSaid) {
  const auto nowhere = directory / "missing" / "hosts";
  EXPECT_EQ(replaceFile(nowhere, "x"),
            "cannot write " + nowhere.string() + ": No such file or directory");
}

TEST_F(ReplacedFile, ATextThatTheCheckRefusesDoesNotTakeThePlaceOfTheOldOne) {
  ASSERT_EQ(replaceFile(file, "old"), "");
  const auto refuse = [this](const fs::path& fresh) {
    std::ostringstream seen;
    seen << std::ifstream(fresh).rdbuf();
    return seen.str() + " after " + text();
  };
  EXPECT_EQ(replaceFile(file, "new", refuse), "cannot write " + file.string() + ": new after old");
  EXPECT_EQ(text(), "old");
  EXPECT_EQ(filesThere(), 1U);
  EXPECT_EQ(replaceFile(file, "new", [](const fs::path&) { return ""; }), "");
  EXPECT_EQ(text(), "new");
}

}  // namespace
}  // namespace examples
