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

TEST(Message, UIdCarriesTypeAndId) {
  EXPECT_EQ(u32_id(0xfe0005).uid(), 0x08fe0005u);
  EXPECT_EQ(bool_id(0xfe0007).uid(), 0x00fe0007u);
  EXPECT_EQ(string_id(0xfe0010).uid(), 0x20fe0010u);
  EXPECT_EQ(message_id(0xfe001d).uid(), 0x28fe001du);
  EXPECT_EQ(u32_array_id(0x88ff0014).uid(), 0x88ff0014u) << "the tag of another UId is dropped";
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

TEST(Message, AbsentFieldsReadAsZeroOrAsTheDefaultGiven) {
  const message m;
  EXPECT_FALSE(m.get(bool_id(1)));
  EXPECT_EQ(m.get(u32_id(1)), 0u);
  EXPECT_EQ(m.get(u64_id(1)), 0u);
  EXPECT_EQ(m.get(addr6_id(1)), addr6{});
  EXPECT_EQ(m.get(string_id(1)), "");
  EXPECT_TRUE(m.get(message_id(1)).empty());
  EXPECT_TRUE(m.get(raw_id(1)).empty());
  EXPECT_TRUE(m.get(string_array_id(1)).empty());
  EXPECT_TRUE(m.view(message_array_id(1)).empty());
  EXPECT_TRUE(m.get(bool_id(1), true));
  EXPECT_EQ(m.get<u32_id>(u32_id(1), kNoId), kNoId);
  EXPECT_EQ(m.get(string_id(1), "none"), "none");
  EXPECT_EQ(m.get(u32_array_id(1), {4, 5}), (std::vector<unsigned>{4, 5}));
  EXPECT_EQ(m.size<u32_array_id>(u32_array_id(1)), 0u);
  EXPECT_FALSE(m.hasElem<u32_array_id>(u32_array_id(1), 0));
}

TEST(Message, HeldZeroIsNotAbsent) {
  const message m{{bool_id(1), false}, {u32_id(1), 0}, {string_id(1), ""}, {u32_array_id(1), {}}};
  EXPECT_EQ(m.count(), 4u);
  EXPECT_FALSE(m.get(bool_id(1), true));
  EXPECT_EQ(m.get(u32_id(1), 7), 0u);
  EXPECT_EQ(m.get(string_id(1), "none"), "");
  EXPECT_TRUE(m.has(u32_array_id(1)));
  EXPECT_TRUE(m.get(u32_array_id(1), {1}).empty());
}

TEST(Message, OneIdWithTwoTypesIsTwoFields) {
  message m{{u32_id(1), 5}, {u32_array_id(1), {6}}};
  EXPECT_FALSE(m.has(string_id(1)));
  EXPECT_EQ(m.get(string_id(1), "wrong type"), "wrong type");
  m.remove(u32_id(1));
  EXPECT_EQ(m.get(u32_array_id(1)), std::vector<unsigned>{6});
}

TEST(Message, EmptyArrayIsAValueThatSurvivesTheFlatForm) {
  message m;
  m[key::removals].insert({});
  EXPECT_FALSE(m.empty());
  bytes flat(99, 0xff);
  m.flatten(flat);
  const message back{flat_message(flat)};
  EXPECT_TRUE(back.has(key::removals));
  EXPECT_EQ(back, m);
}

TEST(Message, EmptyMessageIsNoBytes) {
  message m{{u32_id(1), 1}};
  m.remove(u32_id(1));
  EXPECT_TRUE(m.empty());
  EXPECT_EQ(m.max_length(), 0u);
  EXPECT_EQ(m.flat(), flat_message());
  EXPECT_EQ(message::parse({}), message());
}

TEST(Message, StringsKeepZeroAndHighBytes) {
  const std::string odd("a\0b\xff", 4);
  message m;
  m.insert(string_id(1), odd).append(string_array_id(1), odd).append(string_array_id(1), "");
  EXPECT_EQ(m.get(string_id(1)), odd);
  EXPECT_EQ(m.get(string_array_id(1)), (std::vector<std::string>{odd, ""}));
}

TEST(Message, BoolArraysHoldZerosAndOnes) {
  message m;
  m.insert(bool_array_id(1), bytes{0, 7, 255});
  m.append(bool_array_id(1), 2);
  EXPECT_EQ(m.get(bool_array_id(1)), (bytes{0, 1, 1, 1}));
  EXPECT_EQ(m, (message{{bool_array_id(1), bytes{0, 1, 2, 3}}}));
}

TEST(Message, U32ArraysAppendTestAndRemoveElements) {
  message m;
  m.append(key::removals, 5);
  m[key::removals].append(6);
  m.append(key::removals, 5);
  EXPECT_EQ(m.get(key::removals), (std::vector<unsigned>{5, 6, 5}));
  EXPECT_TRUE(m.hasElem<u32_array_id>(key::removals, 6));
  m.remove<u32_array_id>(key::removals, 5);
  EXPECT_FALSE(m.hasElem<u32_array_id>(key::removals, 5));
  m.remove<u32_array_id>(key::removals, 6);
  m.remove<u32_array_id>(key::removals, 6);
  EXPECT_TRUE(m.has(key::removals));
  EXPECT_EQ(m.size<u32_array_id>(key::removals), 0u);
  m.insert_vector(key::route, 1);
  EXPECT_EQ(m.get(key::route), std::vector<unsigned>{1});
  m.insert_vector(key::route, 2, 3);
  EXPECT_EQ(m.get(key::route), (std::vector<unsigned>{2, 3}));
}

TEST(Message, ListsComeFromWhateverHoldsThem) {
  const message part{{u32_id(1), 1}};
  const std::vector<message> messages{part, message()};
  const std::vector<flat_message> flats{part.flat(), flat_message()};
  EXPECT_EQ((message{{key::objects, messages}}), (message{{key::objects, flats}}));
  EXPECT_EQ((message{{key::objects, {part, {}}}}), (message{{key::objects, flats}}));
  const std::vector<std::string> strings{"a", "bc"};
  const std::array<std::string_view, 2> views{"a", "bc"};
  EXPECT_EQ((message{{key::about, strings}}), (message{{key::about, views}}));
  EXPECT_EQ((message{{key::about, {"a", "bc"}}}), (message{{key::about, views}}));
}

TEST(Message, NestedMessagesReadBackAsTheyWere) {
  const message inner{{key::name, "inner"}, {key::objectId, 3}};
  message m{{key::defaultCfg, inner}};
  m.append(key::objects, inner).append(key::objects, message());
  EXPECT_EQ(message(m.get(key::defaultCfg)), inner);
  EXPECT_EQ(message(m.view(key::defaultCfg)), inner);
  EXPECT_EQ(message(m.view(key::objects)[0]), inner);
  EXPECT_TRUE(message(m.view(key::objects)[1]).empty());
  bytes flat;
  inner.flatten(flat);
  EXPECT_EQ(m, (message{{key::defaultCfg, flat}, {key::objects, {inner, message()}}}));
}

TEST(Message, LastOfSeveralValuesInAListCounts) {
  const message m{{u32_id(1), 1}, {string_id(1), "a"}, {u32_id(1), 2}, {string_id(1), "bcdef"}};
  EXPECT_EQ(text(m), "{1_u 2, 1_s \"bcdef\"}");
}

TEST(Message, ValuesMayBeViewsOfTheMessageItself) {
  for (const std::size_t length : {3u, 100u, 5000u}) {
    const std::string name(length, 'n');
    message m{{string_id(1), name}, {string_id(2), "b"}, {string_array_id(1), {"x", "y"}}};
    m.insert(string_id(0), m.view(string_id(1)));
    m.insert(string_id(2), m.view(string_id(1)));
    m.append(string_array_id(1), m.view(string_id(1)));
    m.append(string_array_id(1), m.view(string_array_id(1))[0]);
    m.insert(string_array_id(0), {m.view(string_id(2)), "z", m.view(string_array_id(1))[1]});
    m.insert(string_id(1), m.view(string_id(1)).substr(1));
    const message before = m;
    m.insert(message_id(0), m);
    m.insert(*m.find(string_id(1).uid()));

    EXPECT_EQ(m.get(string_id(0)), name);
    EXPECT_EQ(m.get(string_id(2)), name);
    EXPECT_EQ(m.get(string_array_id(1)), (std::vector<std::string>{"x", "y", name, "x"}));
    EXPECT_EQ(m.get(string_array_id(0)), (std::vector<std::string>{name, "z", "y"}));
    EXPECT_EQ(m.get(string_id(1)), name.substr(1));
    EXPECT_EQ(message(m.view(message_id(0))), before);
  }
}

TEST(Message, CopiesAreIndependentAndMovedFromIsEmptyAndUsable) {
  for (const std::size_t length : {3u, 5000u}) {
    message m{{string_id(1), std::string(length, 'a')}};
    const message copy = m;
    message moved = std::move(m);
    EXPECT_TRUE(m.empty());  // NOLINT(bugprone-use-after-move): that is what is tested
    m.insert(u32_id(1), 1);
    moved.insert(string_id(1), "changed");
    EXPECT_EQ(copy.get(string_id(1)).size(), length);
    swap(m, moved);
    EXPECT_EQ(m.get(string_id(1)), "changed");
    EXPECT_EQ(moved, (message{{u32_id(1), 1}}));
    m = copy;
    m = *&m;
    EXPECT_EQ(m, copy);
    m = flat_message();
    EXPECT_TRUE(m.empty());
  }
}

TEST(Message, BadFlatFormGivesAnEmptyMessage) {
  const message whole{{key::name, "name"}, {key::objectId, 1}};
  bytes cut;
  whole.flatten(cut);
  cut.pop_back();
  EXPECT_TRUE(message(flat_message(cut)).empty());
  message m = whole;
  m = flat_message(cut);
  EXPECT_TRUE(m.empty());
  EXPECT_FALSE(message::parse(cut));
}

TEST(Message, MergeWithItselfChangesNothingAndExcludeOfItselfLeavesNothing) {
  message m{{u32_id(1), 1}, {string_id(1), "a"}};
  const message before = m;
  m.merge(m);
  EXPECT_EQ(m, before);
  m.exclude(m);
  EXPECT_TRUE(m.empty());
}

TEST(Message, ExcludeLeavesWhatTheOtherHoldsWithAnotherValueOrNotAtAll) {
  message before{{u32_id(1), 1}, {u32_id(2), 2}, {string_id(1), "a"}, {bool_id(1), false}};
  const message after{{u32_id(1), 1}, {u32_id(2), 3}, {string_id(1), "b"}, {u32_id(9), 9}};
  before.exclude(after);
  EXPECT_EQ(text(before), "{1_b false, 2_u 2, 1_s \"a\"}");
}

TEST(Message, MergeOfThreeKeepsTheEarlierValuesOfWhatItChanged) {
  message target{{u32_id(1), 1}, {u32_id(2), 2}, {string_id(1), "old"}, {key::removals, {1}}};
  const message source{{u32_id(1), 1}, {u32_id(3), 3}, {string_id(1), "new"}, {key::removals, {2}}};
  message prior{{u32_id(7), 7}, {string_id(1), "to be replaced"}};
  merge(target, source, prior);
  EXPECT_EQ(target, (message{{u32_id(1), 1},
                             {u32_id(2), 2},
                             {u32_id(3), 3},
                             {string_id(1), "new"},
                             {key::removals, {2}}}));
  EXPECT_EQ(prior, (message{{u32_id(7), 7}, {string_id(1), "old"}, {key::removals, {1}}}));
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
  EXPECT_EQ(code, 99u);
  EXPECT_EQ(why, "untouched");
  EXPECT_TRUE(isError(errorMsg(0, ""), &code, &why));
  EXPECT_EQ(code, 0u);
  EXPECT_EQ(why, "");
  message refusal = failedMsg("no room");
  refusal.insert(key::objectId, 5);
  EXPECT_TRUE(isError(refusal, &code, &why));
  EXPECT_TRUE(isError(refusal));
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
            "{\n"
            ">    10_u 255\n"
            ">    1_s \"a\\\"\\x0a\"\n"
            ">    2_m {\n"
            ">      1_b true\n"
            ">    }\n"
            ">    1_r x01ab\n"
            ">    3_ba [true, false]\n"
            ">    2_ma [{\n"
            ">      1_q 1\n"
            ">    }, {}]\n"
            ">  }**ff");
  std::ostringstream short_form;
  m.dump2(short_form, "> ", 2);
  std::ostringstream long_form;
  m.dump2(long_form, "> ", 0, 2);
  EXPECT_EQ(short_form.str(), long_form.str());
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
