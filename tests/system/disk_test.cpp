/// A disk that takes nothing more.

#include <chrono>
#include <csignal>

#include <gtest/gtest.h>

#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/looper.h"
#include "tests/support/raw_client.h"
#include "tests/support/text_map.h"
#include "tests/system/service_process.h"

namespace nv::testkit {
namespace {

constexpr std::uint32_t kTexts = 20;

TEST(Disk, WhenItIsFullReadsGoOnChangesAreRefusedAndACommitThatFailsEndsTheProcess) {
  const Place place;
  ServiceProcess service(place);
  RawClient client;
  const auto restart = [&] {
    ASSERT_TRUE(service.start()) << service.said();
    ASSERT_TRUE(client.connect(place.socket()));
  };
  const auto text = [&](std::uint32_t id) {
    return client.ask(command(cmd::getObj, id)).get(kText);
  };
  restart();
  for (std::uint32_t id = 1; id <= kTexts; ++id)
    ASSERT_FALSE(isError(client.ask(addText(id, "old"))));

  EXPECT_EQ(service.end(SIGTERM), 0);
  service.limitFiles(32 * 1024);
  restart();
  EXPECT_EQ(client.ask(command(cmd::getCount)).get(key::count), kTexts);
  for (const auto& change :
       {setText(1, "new"), addText(kTexts + 1, "new"), command(cmd::removeObj, 1)}) {
    const auto refusal = client.ask(change);
    EXPECT_EQ(errorCode(refusal), err::notStored);
    EXPECT_EQ(getError(refusal), "file too large");
  }
  EXPECT_EQ(text(1), "old");
  service.limitFiles(std::nullopt);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (isError(client.ask(setText(1, "new")))) ASSERT_LT(std::chrono::steady_clock::now(), end);

  const auto log = place.storeFile() += "-wal";
  service.limitFiles(std::filesystem::file_size(log) + 10000);
  const auto reply = client.ask(setText(1, std::string(100000, 'n')));
  EXPECT_EQ(errorCode(reply), err::notStored);
  EXPECT_NE(getError(reply), "");
  EXPECT_TRUE(client.isCut());
  EXPECT_EQ(service.wait(), Looper::kNotStored);
  EXPECT_EQ(service.said(), "store: changes are lost: " + getError(reply) + "\n");

  service.limitFiles(std::nullopt);
  restart();
  EXPECT_EQ(text(1), "new");
  for (std::uint32_t id = 2; id <= kTexts; ++id) EXPECT_EQ(text(id), "old");
  EXPECT_EQ(client.ask(command(cmd::getCount)).get(key::count), kTexts);
}

}  // namespace
}  // namespace nv::testkit
