/// Stored scripts: what is refused, to whom, and with which words.

#include "examples/scripts/script_map.h"

#include "examples/scripts/source_runs.h"
#include "platform/run_request.h"
#include "tests/examples/service_test.h"

namespace scripts {
namespace {

constexpr std::uint32_t kUser = 0x7fffffff, kSystem = nv::kSystemRights;

/// What a run that was not refused comes to: a process without descriptors in its loop sees no
/// ends.
constexpr const char* kRuns = "runs";

class ScriptMapTest : public ::testing::Test {
 protected:
  ScriptMapTest() {
    map.init();
    nv::getLooper()->addHandler(101, &map);
    nv::getLooper()->addHandler(48, &sources);
  }

  /// "ok", "runs", or the text of the refusal.
  std::string ask(nv::Handler& handler, unsigned code, message request, std::uint32_t rights) {
    const auto said =
        outcome(kit.ask(handler, request.insert(key::command, code), {{0xcfff0001}, rights}));
    return said.find("the end of a process cannot be seen here") == said.npos ? said : kRuns;
  }
  std::string add(const std::string& name, const std::string& source, std::uint32_t needs = 0,
                  std::uint32_t limit = 1000) {
    const message script{
        {key::name, name}, {kSource, source}, {kNeeds, needs}, {kTimeLimit, limit}};
    return ask(map, cmd::addObj, script, kSystem);
  }
  std::string run(const message& which, std::uint32_t rights = kUser) {
    return ask(map, cmd::runScript, which, rights);
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
  for (const auto& [name, source, limit, expected] : cases)
    EXPECT_EQ(add(name, source, 0, limit), expected);
}

TEST_F(ScriptMapTest, OnlyTheSystemChangesScriptsAndRunsASource) {
  ASSERT_EQ(add("greet", "echo hello"), "ok");
  const message change{{key::objectId, 1}, {key::name, "b"}, {kSource, "rm -rf /"}};
  for (const auto code : {cmd::addObj, cmd::setObj, cmd::removeObj})
    EXPECT_EQ(ask(map, code, change, kUser), "not allowed") << code;
  EXPECT_EQ(ask(map, cmd::getObj, {{key::objectId, 1}}, 0), "ok");

  const message source{{nv::run_key::source, "echo hello"}};
  EXPECT_EQ(ask(sources, cmd::runScript, source, 0), "not allowed");
  EXPECT_EQ(ask(sources, cmd::runScript, source, kUser),
            "the request lacks rights that the script needs");
  EXPECT_EQ(ask(sources, cmd::runScript, source, kSystem), kRuns);
  EXPECT_EQ(ask(sources, cmd::runScript, {}, kSystem), "a run needs a source");
}

TEST_F(ScriptMapTest, ARunNeedsTheRightsOfItsScript) {
  const std::uint32_t haves[] = {0, 1, 2, 3, 5, 7, 0x7fffffff, kSystem, kSystem | 1, 0xffffffff};
  std::uint32_t id = 0;
  for (const std::uint32_t need : {0U, 1U, 2U, 5U, 0x7fffffffU, kSystem}) {
    ASSERT_EQ(add("s" + std::to_string(++id), "echo hello", need), "ok");
    for (const auto have : haves) {
      const bool suffices = have != 0 && (have >= kSystem || (have & need) == need);
      EXPECT_EQ(run({{key::objectId, id}}, have) == kRuns, suffices)
          << std::hex << need << ' ' << have;
    }
  }
}

TEST_F(ScriptMapTest, AScriptIsFoundByIdAndByNameAlsoByItsNewOne) {
  ASSERT_EQ(add("greet", "echo hello"), "ok");
  EXPECT_EQ(run({{key::name, "greet"}}), kRuns);
  EXPECT_EQ(ask(map, cmd::setObj, {{key::objectId, 1}, {key::name, "hi"}}, kSystem), "ok");
  EXPECT_EQ(run({{key::name, "hi"}}), kRuns);
  for (const auto& nobody : {message{{key::name, "greet"}}, message{{key::objectId, 2}}}) {
    unsigned code = 0;
    message request = nobody;
    request.insert(key::command, cmd::runScript);
    EXPECT_TRUE(nv::isError(kit.ask(map, request, nv::testkit::user()), &code));
    EXPECT_EQ(code, err::noSuchObject);
  }
}

TEST_F(ScriptMapTest, AnArgumentIsAText) {
  ASSERT_EQ(add("greet", "echo hello"), "ok");
  const auto runWith = [&](const std::vector<nv::flat_message>& arguments) {
    return run({{key::objectId, 1}, {nv::run_key::arguments, arguments}});
  };
  const auto good = message{{nv::run_key::word, "x"}}.flat();
  EXPECT_EQ(runWith({good, message{{nv::u32_id{1}, 7}}.flat()}), "argument 2 is no text");
  EXPECT_EQ(runWith({message().flat(), good}), "argument 1 is no text");
  EXPECT_EQ(runWith({message{{nv::run_key::word, std::string("a\0b", 3)}}.flat()}),
            "argument 1 is no text");
  EXPECT_EQ(runWith({good, good}), kRuns);
}

}  // namespace
}  // namespace scripts
