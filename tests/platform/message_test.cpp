#include "platform/message.h"

#include <iomanip>
#include <sstream>

#include <gtest/gtest.h>

#include "platform/errors.h"
#include "platform/keys.h"

namespace nv {
namespace {

using bytes = std::vector<unsigned char>;

std::string text(const message& m) {
  std::ostringstream os;
  m.dump2(os, "", 0);
  return os.str();
}

TEST(Message, EveryTagWithoutATypeNamesNoField) {
  const message m{{bool_id(1), true}, {raw_array_id(1), {}}};
  for (std::uint32_t top = 0; top < 32; ++top) {
    const std::uint32_t uid = top << 27 | 1;
    const bool known = (top & 15) <= 6;
    EXPECT_EQ(withId(uid, [&](auto id) { EXPECT_EQ(id.uid(), uid); }), known);
    EXPECT_EQ(typeSuffix(uid).empty(), !known);
    EXPECT_EQ(m.find(uid).has_value(), uid == 1 || uid == 0xb0000001);
  }
}

TEST(Message, AbsentFieldsReadAsTheDefaultGivenAndHeldZerosDoNot) {
  const message m;
  EXPECT_EQ(m.get(addr6_id(1)), addr6{});
  EXPECT_TRUE(m.view(message_array_id(1)).empty());
  EXPECT_EQ(m.get(string_id(1), "none"), "none");
  EXPECT_EQ(m.get(u32_array_id(1), {4, 5}), (std::vector<unsigned>{4, 5}));
  const message zeros{{bool_id(1), false}, {string_id(1), ""}, {u32_array_id(1), {}}};
  EXPECT_FALSE(zeros.get(bool_id(1), true));
  EXPECT_EQ(zeros.get(string_id(1), "none"), "");
  EXPECT_TRUE(zeros.get(u32_array_id(1), {1}).empty());
}

TEST(Message, BoolArraysHoldZerosAndOnes) {
  message m;
  m.insert(bool_array_id(1), bytes{0, 7, 255});
  m.append(bool_array_id(1), 2);
  EXPECT_EQ(m.get(bool_array_id(1)), (bytes{0, 1, 1, 1}));
  EXPECT_EQ(m, (message{{bool_array_id(1), bytes{0, 1, 2, 3}}}));
}

TEST(Message, ListsComeFromWhateverHoldsThem) {
  const message part{{u32_id(1), 1}};
  const std::vector<message> messages{part, message()};
  const std::vector<flat_message> flats{part.flat(), flat_message()};
  EXPECT_EQ((message{{key::objects, messages}}), (message{{key::objects, flats}}));
  EXPECT_EQ((message{{key::objects, {part, {}}}}), (message{{key::objects, flats}}));
  const std::array<std::string_view, 2> views{"a", "bc"};
  EXPECT_EQ((message{{key::about, {"a", "bc"}}}), (message{{key::about, views}}));
}

TEST(Message, LastOfSeveralValuesInAListCounts) {
  const message m{{u32_id(1), 1}, {string_id(1), "a"}, {u32_id(1), 2}, {string_id(1), "bcdef"}};
  EXPECT_EQ(text(m), "{1_u 2, 1_s \"bcdef\"}");
}

TEST(Message, ValuesMayBeViewsOfTheMessageItself) {
  for (const std::size_t length : {3u, 100u, 5000u}) {
    const std::string name(length, 'n');
    message m{{string_id(1), name}, {string_id(2), "b"}, {string_array_id(1), {"x", "y"}}};
    m.insert(string_id(2), m.view(string_id(1)));
    m.append(string_array_id(1), m.view(string_id(1)));
    m.append(string_array_id(1), m.view(string_array_id(1))[0]);
    m.insert(string_array_id(0), {m.view(string_id(2)), "z", m.view(string_array_id(1))[1]});
    m.insert(string_id(1), m.view(string_id(1)).substr(1));
    const message before = m;
    m.insert(message_id(0), m);
    m.insert(*m.find(string_id(1).uid()));

    EXPECT_EQ(m.get(string_id(2)), name);
    EXPECT_EQ(m.get(string_array_id(1)), (std::vector<std::string>{"x", "y", name, "x"}));
    EXPECT_EQ(m.get(string_array_id(0)), (std::vector<std::string>{name, "z", "y"}));
    EXPECT_EQ(m.get(string_id(1)), name.substr(1));
    EXPECT_EQ(message(m.view(message_id(0))), before);
  }
}

TEST(Message, MergeOfThreeMayTakeItsSourceFromTheTargetOrThePrior) {
  message m{{u32_id(1), 1}};
  message prior;
  merge(m, m, prior);
  EXPECT_TRUE(prior.empty());
  message both{{u32_id(1), 2}, {u32_id(2), 2}};
  merge(m, both, both);
  EXPECT_EQ(m, (message{{u32_id(1), 2}, {u32_id(2), 2}}));
  EXPECT_EQ(both, (message{{u32_id(1), 1}, {u32_id(2), 2}}));
}

TEST(Message, ErrorRepliesAreKnownByTheirFormWhateverTheirCode) {
  unsigned code = 99;
  std::string why = "untouched";
  EXPECT_FALSE(isError(message{{key::objectId, 1}}, &code, &why));
  EXPECT_EQ(std::to_string(code) + why, "99untouched");
  EXPECT_TRUE(isError(errorMsg(0, ""), &code, &why));
  EXPECT_EQ(std::to_string(code) + why, "0");
  const message refusal = failedMsg("no room").insert(key::objectId, 5);
  EXPECT_TRUE(isError(refusal, &code, nullptr));
  EXPECT_EQ(code, err::failed);
  EXPECT_EQ(getError(refusal), "no room");
  EXPECT_EQ(getError(message{{key::errorText, "no code, so no error"}}), "");
}

TEST(Message, CleanSysDropsTheEnvelopeAndNothingElse) {
  message m{{key::route, {1}},  {key::command, 5},          {key::rights, 1},
            {key::objectId, 1}, {string_id(0xff00ff), "x"}, {string_id(0xff0100), "y"}};
  cleanSys(m);
  EXPECT_EQ(m, (message{{key::objectId, 1}, {string_id(0xff0100), "y"}}));
}

TEST(Message, DumpIndentsByLevelAndLeavesTheStreamAlone) {
  const message m{{u32_id(10), 255},
                  {string_id(1), "a\"\n"},
                  {message_id(2), message{{bool_id(1), true}}},
                  {message_array_id(2), {message{{u64_id(1), 1}}, message()}},
                  {raw_id(1), bytes{1, 0xab}},
                  {bool_array_id(3), bytes{1, 0}}};
  std::ostringstream os;
  os << std::hex << std::setfill('*') << std::setw(4);
  m.dump2(os, "> ", 1, 2);
  os << 255;
  EXPECT_EQ(os.str(),
            R"({
>    10_u 255
>    1_s "a\"\x0a"
>    2_m {
>      1_b true
>    }
>    1_r x01ab
>    3_ba [true, false]
>    2_ma [{
>      1_q 1
>    }, {}]
>  }**ff)");
}

TEST(Message, DumpPrintsWhatIsNestedTooDeeplyAsBytes) {
  message m{{u32_id(1), 1}};
  for (unsigned level = 0; level < message::kMaxDepth + 3; ++level) m = message{{message_id(1), m}};
  EXPECT_NE(text(m).find("1_m x"), std::string::npos);
  message bad;
  bad.insert(message_id(1), bytes{1, 2, 3});
  EXPECT_EQ(text(bad), "{1_m x010203}");
}

}  // namespace
}  // namespace nv
