/// Stored scripts: what is refused, to whom, and with which words.

#include "examples/scripts/script_map.h"

#include <gtest/gtest.h>

#include "examples/scripts/source_runs.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "platform/run_request.h"
#include "testing/kit.h"

namespace scripts {
namespace {

namespace key = nv::key;
using nv::message;
using nv::testkit::Kit;

constexpr std::uint32_t kUser = 0x7fffffff, kSystem = nv::kSystemRights;

/// What a run says that was not refused: a process without descriptors in its loop sees no ends.
constexpr const char* kWouldRun = "the end of a process cannot be seen here";

class ScriptMapTest : public ::testing::Test {
 protected:
  ScriptMapTest() {
    map.init();
    nv::getLooper()->addHandler(101, &map);
    nv::getLooper()->addHandler(48, &sources);
  }

  /// "ok", or the text of the refusal.
  std::string ask(nv::Handler& handler, const message& request, std::uint32_t rights) {
    const auto reply = kit.ask(handler, request, {{0xcfff0001}, rights});
    return nv::isError(reply) ? nv::getError(reply) : "ok";
  }
  std::string add(const std::string& name, const std::string& source, std::uint32_t needs = 0,
                  std::uint32_t limit = 1000) {
    return ask(map,
               {{key::command, nv::cmd::addObj},
                {key::name, name},
                {kSource, source},
                {kNeeds, needs},
                {kTimeLimit, limit}},
               kSystem);
  }
  static message runOf(std::uint32_t id) {
    return {{key::command, nv::cmd::runScript}, {key::objectId, id}};
  }

  Kit kit;
  Runner runner;
  ScriptMap map{runner};
  SourceRuns sources{runner};
};

TEST_F(ScriptMapTest, FaultsAreRefusedWithWordsThatSayWhatIsWrong) {
  ASSERT_EQ(add("greet", "echo hello"), "ok");
  const struct {
    std::string name, source;
    std::uint32_t limit;
    std::string outcome;
  } cases[] = {
      {"", ":", 1, "a script needs a name"},
      {"a b", ":", 1, "\"a b\" is no name: it may hold letters, digits, '-' and '_' only"},
      {"7th", ":", 1, "\"7th\" is no name: it begins with a digit"},
      {"greet", ":", 1, "the name \"greet\" is taken by object 1"},
      {"a", "", 1, "a script needs a source"},
      {"a", std::string("a\0b", 3), 1, "a script holds no zero byte"},
      {"a", std::string(65537, 'x'), 1, "a script has at most 65536 bytes, this one has 65537"},
      {"a", ":", 0, "the time limit is 1 to 60000 ms, this one is 0"},
      {"a", ":", 60001, "the time limit is 1 to 60000 ms, this one is 60001"},
      {"a", std::string(65536, 'x'), 60000, "ok"},
  };
  for (const auto& [name, source, limit, outcome] : cases)
    EXPECT_EQ(add(name, source, 0, limit), outcome);
}

TEST_F(ScriptMapTest, OnlyTheSystemChangesScripts) {
  ASSERT_EQ(add("greet", "echo hello"), "ok");
  for (const auto code : {nv::cmd::addObj, nv::cmd::setObj, nv::cmd::removeObj}) {
    const message request{
        {key::command, code}, {key::objectId, 1}, {key::name, "b"}, {kSource, "rm -rf /"}};
    EXPECT_EQ(ask(map, request, kUser), "not allowed") << code;
  }
  EXPECT_EQ(ask(map, {{key::command, nv::cmd::getObj}, {key::objectId, 1}}, 0), "ok");
}

TEST_F(ScriptMapTest, ARunNeedsTheRightsOfItsScript) {
  const std::uint32_t needs[] = {0, 1, 2, 5, 0x7fffffff, kSystem};
  const std::uint32_t haves[] = {0, 1, 2, 3, 5, 7, 0x7fffffff, kSystem, kSystem | 1, 0xffffffff};
  std::uint32_t id = 0;
  for (const auto need : needs) {
    ASSERT_EQ(add("s" + std::to_string(++id), "echo hello", need), "ok");
    for (const auto have : haves) {
      const bool suffices = have != 0 && (have >= kSystem || (have & need) == need);
      const auto said = ask(map, runOf(id), have);
      EXPECT_EQ(said.find(kWouldRun) != std::string::npos, suffices)
          << std::hex << need << ' ' << have << ' ' << said;
    }
  }
}

TEST_F(ScriptMapTest, ASourceRunsForTheSystemAlone) {
  const message request{{key::command, nv::cmd::runScript}, {nv::run_key::source, "echo hello"}};
  EXPECT_EQ(ask(sources, request, 0), "not allowed");
  EXPECT_EQ(ask(sources, request, kUser), "the request lacks rights that the script needs");
  EXPECT_NE(ask(sources, request, kSystem).find(kWouldRun), std::string::npos);
  EXPECT_EQ(ask(sources, {{key::command, nv::cmd::runScript}}, kSystem), "a run needs a source");
}

TEST_F(ScriptMapTest, AScriptIsFoundByIdAndByNameAlsoByItsNewOne) {
  ASSERT_EQ(add("greet", "echo hello"), "ok");
  const auto byName = [&](const std::string& name) {
    return ask(map, {{key::command, nv::cmd::runScript}, {key::name, name}}, kUser);
  };
  EXPECT_NE(byName("greet").find(kWouldRun), std::string::npos);
  EXPECT_NE(ask(map, runOf(1), kUser).find(kWouldRun), std::string::npos);
  EXPECT_EQ(
      ask(map, {{key::command, nv::cmd::setObj}, {key::objectId, 1}, {key::name, "hi"}}, kSystem),
      "ok");
  EXPECT_EQ(byName("greet"), "");
  EXPECT_NE(byName("hi").find(kWouldRun), std::string::npos);
  unsigned code = 0;
  EXPECT_TRUE(nv::isError(kit.ask(map, runOf(2), nv::testkit::user()), &code));
  EXPECT_EQ(code, nv::err::noSuchObject);
}

TEST_F(ScriptMapTest, AnArgumentIsAText) {
  ASSERT_EQ(add("greet", "echo hello"), "ok");
  const auto withArguments = [&](const std::vector<nv::flat_message>& arguments) {
    auto request = runOf(1);
    request.insert(nv::run_key::arguments, arguments);
    return ask(map, request, kUser);
  };
  const auto good = message{{nv::run_key::word, "x"}}.flat();
  EXPECT_EQ(withArguments({good, message{{nv::u32_id{1}, 7}}.flat()}), "argument 2 is no text");
  EXPECT_EQ(withArguments({message().flat(), good}), "argument 1 is no text");
  EXPECT_EQ(withArguments({message{{nv::run_key::word, std::string("a\0b", 3)}}.flat()}),
            "argument 1 is no text");
  EXPECT_NE(withArguments({good, good}).find(kWouldRun), std::string::npos);
}

}  // namespace
}  // namespace scripts
