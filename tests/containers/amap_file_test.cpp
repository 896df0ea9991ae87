// An object map whose records are in a file, and what becomes of it when the file is damaged.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/keys.h"
#include "platform/store_file.h"
#include "testing/kit.h"
#include "tests/support/captured_output.h"
#include "tests/support/temp_directory.h"
#include "tests/support/text_map.h"

namespace nv::testkit {
namespace {

// More of them than the database keeps in memory.
constexpr std::uint32_t kTexts = 500;

class AMapInAFile : public ::testing::Test {
 protected:
  /// The text under `id`, which fills a page of the file and more.
  static std::string text(std::uint32_t id) {
    std::string text;
    while (text.size() < 2000) text += "text " + std::to_string(id) + ';';
    return text;
  }

  AMapInAFile() {
    startProcess();
    startMap();
    for (std::uint32_t id = 1; id <= kTexts; ++id)
      EXPECT_FALSE(isError(ask(cmd::addObj, id, text(id))));
  }
  ~AMapInAFile() override { stop(); }

  void stop() {
    map_.reset();
    if (kit_) kit_->settle();
    kit_.reset();
  }
  void startProcess() {
    stop();
    std::string error;
    kit_ = std::make_unique<Kit>(openStoreFile(file_, &error));
    EXPECT_EQ(error, "");
  }
  void startMap() {
    map_ = std::make_unique<TextMap>();
    map_->init();
  }
  void restart() {
    startProcess();
    startMap();
  }

  message ask(unsigned code, std::uint32_t id, const std::string& text = {}) {
    message request{{key::command, code}, {key::objectId, id}};
    if (!text.empty()) request.insert(kText, text);
    return kit_->ask(*map_, request);
  }

  /// Damages one byte of the text in the file.
  void damage(std::uint32_t id) {
    std::fstream file(file_, std::ios::in | std::ios::out | std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    const auto at = bytes.find(text(id).substr(0, 50));
    ASSERT_NE(at, std::string::npos);
    file.seekp(static_cast<std::streamoff>(at)).put('T');
  }

  /// Whether all texts are there but `missing` (0: none).
  void expectAllBut(std::uint32_t missing) {
    EXPECT_EQ(map_->objectCount(), missing == 0 ? kTexts : kTexts - 1);
    for (std::uint32_t id = 1; id <= kTexts; ++id)
      EXPECT_EQ(ask(cmd::getObj, id).get(kText), id == missing ? "" : text(id)) << id;
  }

  TempDirectory directory_{TempDirectory::inMemory()};
  std::filesystem::path file_ = directory_ / "texts.db";
  std::unique_ptr<Kit> kit_;
  std::unique_ptr<TextMap> map_;
};

TEST_F(AMapInAFile, LosesTheDamagedObjectAloneAndTakesItAgain) {
  stop();
  damage(17);
  {
    CapturedOutput output;
    restart();
    EXPECT_NE(output.text().find(" held record 17, which is damaged\n"), std::string::npos)
        << output.text();
  }
  expectAllBut(17);
  unsigned code = 0;
  EXPECT_TRUE(isError(ask(cmd::getObj, 17), &code, nullptr));
  EXPECT_EQ(code, err::noSuchObject);
  EXPECT_FALSE(isError(ask(cmd::addObj, 17, text(17))));

  CapturedOutput output;
  restart();
  expectAllBut(0);
  EXPECT_EQ(output.text(), "");
}

TEST_F(AMapInAFile, EndsItsProcessRatherThanTakeAnUnreadableObjectForAnEmptyOne) {
  startProcess();
  damage(250);
  {
    CapturedOutput output;
    startMap();
    EXPECT_EQ(kit_->exitStatus(), Looper::kNotStored);
    EXPECT_EQ(output.text(),
              "store: record 250 of \"texts\" cannot be read: database disk image is malformed\n");
    // Nothing of what a process does that should have ended is written.
    ask(cmd::setObj, 3, "new");
    stop();
  }
  CapturedOutput output;
  restart();
  expectAllBut(250);
}

}  // namespace
}  // namespace nv::testkit
