// Who may change a script, what is kept of it, and what is asked of the script service.
#include "script/invoke_script.h"

#include <gtest/gtest.h>

#include "containers/error_texts.h"
#include "platform/commands.h"
#include "platform/errors.h"
#include "testing/kit.h"

namespace nv {
void PrintTo(const message& m, std::ostream* os) { m.dump2(*os, "", 0); }

namespace {

constexpr u32_id kId{1};
constexpr u32_id kRights{2};
constexpr string_id kOrigin{3};
constexpr string_id kText{4};
constexpr message_array_id kArgs{5};
constexpr message_array_id kCallArgs{0x450};
constexpr unsigned kService = 48;

flat_message arg(unsigned n) { return message{{u32_id(7), n}}.flat(); }

InvokeScript stored(const message& cfg) {
  InvokeScript script;
  script.fromStore(cfg);
  return script;
}
InvokeScript byId(std::uint32_t rights) {
  return stored({{kId, 7}, {kRights, rights}, {kOrigin, "ann"}, {kArgs, {arg(2), arg(3)}}});
}
InvokeScript bySource(std::uint32_t rights) {
  return stored({{kText, "echo"}, {kRights, rights}, {kOrigin, "ann"}});
}

TEST(ScriptSetting, IsReadAndWritten) {
  const struct {
    message read, written;
  } cases[] = {
      {{}, {}},
      {{{kRights, 3}, {kOrigin, "ann"}, {kArgs, {arg(1)}}}, {}},
      {{{kId, 7}, {kRights, 3}, {kOrigin, "ann"}}, {{kId, 7}, {kRights, 3}, {kOrigin, "ann"}}},
      {{{kText, ""}}, {{kText, ""}, {kRights, 0}, {kOrigin, ""}}},
      {{{kText, "echo"}, {kArgs, {arg(1), arg(2)}}},
       {{kText, "echo"}, {kRights, 0}, {kOrigin, ""}, {kArgs, {arg(1), arg(2)}}}},
      {{{kId, 7}, {kText, "echo"}}, {{kId, 7}, {kRights, 0}, {kOrigin, ""}}},
      // Another type is another key.
      {{{string_id(1), "7"}, {u32_id(4), 7}}, {}},
  };
  for (const auto& [read, written] : cases) {
    auto script = byId(9);
    script.fromStore(read);
    EXPECT_EQ(script.toCfg(), written);
    script.clear();
    EXPECT_EQ(script.id, kNoId);
    EXPECT_EQ(script.kind, InvokeScript::kNone);
    EXPECT_EQ(script.origin + script.source, "");
    EXPECT_EQ(script.rights + script.args.size(), 0U);
  }
}

/// What an update should lead to, said without the code: bits that are in one and not in the other
/// are counted.
struct Expected {
  bool isApplied;
  std::uint32_t rights;
  std::string origin;
};
Expected expected(const InvokeScript& before, bool toSource, std::uint32_t caller) {
  if (before.kind != InvokeScript::kBySource && !toSource) return {true, caller, "bob"};
  bool covered = true;
  for (std::uint32_t bit = 1; bit != 0; bit <<= 1)
    if ((before.rights & bit) != 0 && (caller & bit) == 0) covered = false;
  return {covered, before.rights, before.origin};
}

TEST(ScriptUpdate, FollowsTheModelForAllRights) {
  const message updates[] = {{}, {{kId, 8}}, {{kText, "date"}, {kArgs, {arg(4)}}}};
  std::vector<std::uint32_t> all{0x80000000, 0x80000002, 0x7fffffff, 0xffffffff};
  for (std::uint32_t r = 0; r < 8; ++r) all.push_back(r);
  for (const auto rights : all)
    for (const auto caller : all)
      for (const auto& before : {InvokeScript(), byId(rights), bySource(rights)})
        for (const auto& update : updates) {
          auto script = before;
          message reply{{u32_id(1), 1}};
          const auto want = expected(before, update.has(kText), caller);
          ASSERT_EQ(script.update(update, caller, "bob", &reply), want.isApplied)
              << rights << " " << caller;
          if (!want.isApplied) {
            EXPECT_EQ(script.toCfg(), before.toCfg());
            EXPECT_EQ(reply, errorMsg(err::scriptRights,
                                      "cannot change script source value with higher rights"));
            continue;
          }
          auto next = stored(update);
          next.rights = want.rights;
          next.origin = want.origin;
          EXPECT_EQ(script.toCfg(), next.toCfg());
          EXPECT_EQ(script.rights, want.rights);
          EXPECT_EQ(script.origin, want.origin);
          EXPECT_EQ(reply, message({{u32_id(1), 1}})) << "untouched";
        }
}

TEST(ScriptUpdate, IsCheckedInThisOrder) {
  const auto both = errorMsg(err::badCommand, "cannot set script id and source at the same time");
  const auto rights = errorMsg(err::scriptRights, "cannot modify rights");
  const auto higher =
      errorMsg(err::scriptRights, "cannot change script source value with higher rights");
  const struct {
    message update, error;
  } cases[] = {
      {{{kId, 1}, {kText, "a"}, {kRights, 1}}, both},
      {{{kText, "a"}, {kOrigin, ""}}, rights},
      {{{kRights, 0}}, rights},
      {{{kId, 1}}, higher},
      {{}, higher},
  };
  const auto before = bySource(6);
  for (const auto& [update, error] : cases) {
    auto script = before;
    message reply{{u32_id(1), 1}}, empty;
    for (auto* const answer : {&reply, &empty, static_cast<message*>(nullptr)})
      EXPECT_FALSE(script.update(update, 2, "bob", answer));
    EXPECT_EQ(reply, error);
    EXPECT_TRUE(empty.empty()) << "an empty reply stays empty";
    EXPECT_EQ(script.toCfg(), before.toCfg());
  }
}

TEST(ScriptRequest, HoldsTheseBytes) {
  const auto script = byId(4);
  const message first{
      {key::rights, 4},        {key::scriptOrigin, "ann"}, {kCallArgs, {arg(1), arg(2), arg(3)}},
      {key::route, {48, 101}}, {key::command, 1},          {key::objectId, 7}};
  EXPECT_EQ(script.runmsg({arg(1)}).flat(), first.flat());
  const message second{{u32_id(0xff000b), 0},
                       {string_id(0xff000a), ""},
                       {u32_array_id(0xff0001), {48}},
                       {u32_id(0xff0007), 1},
                       {string_id(101), "echo"}};
  EXPECT_EQ(stored({{kText, "echo"}}).runmsg({}).flat(), second.flat());
  EXPECT_TRUE(InvokeScript().runmsg({arg(1)}).empty());
}

class ScriptCalls : public ::testing::Test {
 protected:
  Post post(const InvokeScript& script, std::vector<flat_message> args = {}) {
    return script.post(std::move(args), [this](const message& m) { answers.push_back(m); });
  }
  testkit::Kit kit;
  std::vector<message> answers;
};

TEST_F(ScriptCalls, RunSendsTheRequestAndAwaitsNothing) {
  kit.serve(kService);
  byId(4).run({arg(1)});
  bySource(4).run();
  InvokeScript().run();
  EXPECT_EQ(kit.seen().sentMessages,
            (std::vector<message>{byId(4).runmsg({arg(1)}), bySource(4).runmsg({})}));
  kit.settle();
  auto service = kit.acceptedPeer();
  ASSERT_TRUE(service);
  const auto asked = service->received();
  ASSERT_EQ(asked.size(), 2U);
  EXPECT_EQ(asked[1].get(string_id(101)), "echo");
  EXPECT_FALSE(nv::getLooper()->nextTimer());
}

TEST_F(ScriptCalls, APostIsAnsweredAtOnceOrByTheScriptServiceUnlessItsHandleGoes) {
  kit.seen().answersPosts = true;
  EXPECT_FALSE(post(InvokeScript(), {arg(1)}).pending());
  EXPECT_EQ(std::exchange(answers, {}), std::vector<message>{message()}) << "there is no script";
  InvokeScript().post({});
  const auto first = post(byId(4), {arg(1)});
  const auto second = post(bySource(0));
  EXPECT_TRUE(post(byId(4)).pending());
  const auto& posts = kit.seen().posts;
  ASSERT_EQ(posts.size(), 3U);
  EXPECT_EQ(posts[0].request, byId(4).runmsg({arg(1)}));
  EXPECT_EQ(posts[1].request, bySource(0).runmsg({}));
  posts[2].answer({{u32_id(1), 2}});
  posts[1].answer({{u32_id(1), 3}});
  EXPECT_EQ(answers, std::vector<message>{message({{u32_id(1), 3}})});
}

TEST_F(ScriptCalls, APostTimesOutAfterSixSeconds) {
  kit.serve(kService);
  const auto sent = post(byId(4));
  kit.advance(5999);
  EXPECT_TRUE(answers.empty());
  EXPECT_TRUE(sent.pending());
  kit.advance(1);
  ASSERT_EQ(answers.size(), 1U);
  unsigned code = 0;
  EXPECT_TRUE(isError(answers[0], &code, nullptr));
  EXPECT_EQ(code, err::timedOut);
  EXPECT_FALSE(sent.pending());
}

}  // namespace
}  // namespace nv
