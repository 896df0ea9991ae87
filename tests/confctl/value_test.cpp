/// What people type for a value of each type, and what they see, are the same thing.

#include <gtest/gtest.h>

#include "platform/describe.h"
#include "platform/keys.h"
#include "tests/support/random.h"
#include "tests/support/random_message.h"
#include "tools/confctl/failure.h"
#include "tools/confctl/fields.h"
#include "tools/confctl/value_json.h"

namespace confctl {
namespace {

using nv::message;
using Bytes = std::vector<unsigned char>;
using Words = std::vector<std::string>;

/// What a POSIX shell makes of a word that confctl has quoted.
std::string unquoted(std::string_view word) {
  std::string text;
  bool quoted = false;
  for (std::size_t k = 0; k < word.size(); ++k) {
    if (word[k] == '\'') {
      quoted = !quoted;
    } else if (word[k] == '\\' && !quoted) {
      text += word[++k];
    } else {
      text += word[k];
    }
  }
  return text;
}

message typedBack(const message& m) {
  Words arguments;
  for (const std::string& word : fieldWords(m, {})) arguments.push_back(unquoted(word));
  return readFields(arguments, {});
}

std::string shown(const message& m) {
  std::string text;
  for (const std::string& word : fieldWords(m, {})) text += (text.empty() ? "" : " ") + word;
  return text;
}

nv::addr6 address(std::string_view text) {
  nv::addr6 result;
  fromText(text, result);
  return result;
}

TEST(Values, AreShownAsTheWordThatGivesThemBack) {
  const message inner{{nv::u32_id(1), 7}, {nv::string_id(2), "a b"}};
  const std::pair<std::string, message> samples[] = {
      {"7_b=true", {{nv::bool_id(7), true}}},
      {"7_u=4294967295", {{nv::u32_id(7), 0xffffffff}}},
      {"16777215_q=18446744073709551615", {{nv::u64_id(0xffffff), ~std::uint64_t{0}}}},
      {"7_a=192.0.2.1", {{nv::addr6_id(7), address("192.0.2.1")}}},
      {"7_a=::", {{nv::addr6_id(7), nv::addr6{}}}},
      {"7_s=", {{nv::string_id(7), ""}}},
      {R"(7_s='it'\''s $HOME\')", {{nv::string_id(7), R"(it's $HOME\)"}}},
      {R"(7_s:='"a\nb"')", {{nv::string_id(7), "a\nb"}}},
      {R"(7_s:='{"hex":"ff00"}')", {{nv::string_id(7), std::string_view("\xff\0", 2)}}},
      {"7_s='\xc3\xa9'", {{nv::string_id(7), "\xc3\xa9"}}},
      {R"(7_s:='"\u202ex"')", {{nv::string_id(7), "\xe2\x80\xaex"}}},  // would turn the line round
      {R"(7_m='{"1_u":7,"2_s":"a b"}')", {{nv::message_id(7), inner}}},
      {"7_r=00ff", {{nv::raw_id(7), Bytes{0, 0xff}}}},
      {"7_ba=true,false", {{nv::bool_array_id(7), {1, 0}}}},
      {"7_ua=", {{nv::u32_array_id(7), std::vector<std::uint32_t>{}}}},
      {"7_qa=1,5000000000", {{nv::u64_array_id(7), {1, 5000000000}}}},
      {"7_aa=10.0.0.1,fe80::1",
       {{nv::addr6_array_id(7), {address("10.0.0.1"), address("fe80::1")}}}},
      {R"(7_sa='a\,b,\\,c d,')", {{nv::string_array_id(7), {"a,b", "\\", "c d", ""}}}},
      {R"(7_sa:='[""]')", {{nv::string_array_id(7), {""}}}},
      {R"(7_sa:='["a\tb",{"hex":"80"}]')", {{nv::string_array_id(7), {"a\tb", "\x80"}}}},
      {R"(7_ma='[{"1_u":7,"2_s":"a b"},{}]')", {{nv::message_array_id(7), {inner, message()}}}},
      {"7_ra=00,,ff", {{nv::raw_array_id(7), std::vector<Bytes>{{0}, {}, {0xff}}}}},
      {R"(7_ra:='[""]')", {{nv::raw_array_id(7), std::vector<Bytes>{{}}}}},
  };
  for (const auto& [word, value] : samples) {
    EXPECT_EQ(shown(value), word);
    EXPECT_TRUE(typedBack(value) == value) << word;
  }
  EXPECT_EQ(shown(readFields({"7_u=0xFF", "7_ua=1,2", "7_ua=3", "7_sa=", "7_sa=x"}, {})),
            "7_u=255 7_ua=1,2,3 7_sa=x");
}

TEST(Values, OfAllTypesComeBackFromTextAndFromJson) {
  Random seed;
  SCOPED_TRACE(seed.seed());
  nv::testkit::random_source random(seed.below(0x7fffffff));
  const auto oddText = [&] {
    constexpr const char* odd[] = {"a", ",", "\\", "'", "\"", " ", "\n", "\xff", "\xc3\xa9", "{"};
    std::string text(random.oneIn(8) ? 1 : 0, '\0');
    for (auto k = random.below(6); k > 0; --k) text += odd[random.below(std::size(odd))];
    return text;
  };
  for (int round = 0; round < 3000; ++round) {
    message m = random.someMessage(random.below(5), 0xfdff);
    std::vector<std::string> list(random.below(4));
    for (auto& element : list) element = oddText();
    m.insert(nv::string_id(0xff00), oddText()).insert(nv::string_array_id(0xff00), list);
    if (random.oneIn(2)) m = {{nv::message_id(7), m}, {nv::message_array_id(7), {m, message()}}};
    ASSERT_TRUE(typedBack(m) == m) << round << ": " << shown(m);
    message fromJson;
    for (const nv::field& f : m)
      insertJson(fromJson, f.uid(), parseJson(dumpJson(jsonOf(f, {}))), {});
    ASSERT_TRUE(fromJson == m) << round << ": " << shown(m);
  }
}

TEST(Values, ThatAreWrongAreRefusedWithTheirArgumentAndTheReason) {
  const auto nested = [](unsigned depth) {
    return "7_m:=" + std::string(depth, '[') + std::string(depth, ']');
  };
  const std::string noNumber = " is not a number from 0 to 4294967295";
  const std::string noLongNumber = " is not a number from 0 to 18446744073709551615";
  const std::string badList = "in a list a backslash stands before a comma or a backslash only";
  const struct {
    Words arguments;  // of which the last is wrong
    std::string complaint;
  } table[] = {
      {{"7_b=yes"}, "'yes' is not true or false"},
      {{"7_u=-1"}, "'-1'" + noNumber},
      {{"7_u=4294967296"}, "'4294967296'" + noNumber},
      {{"7_u=7 "}, "'7 '" + noNumber},
      {{"7_u=0x"}, "'0x'" + noNumber},
      {{"7_u="}, "''" + noNumber},
      {{"7_q=18446744073709551616"}, "'18446744073709551616'" + noLongNumber},
      {{"7_a=192.0.2.256"}, "'192.0.2.256' is not an IPv4 or IPv6 address"},
      {{"7_a=10.0.0.0/8"}, "'10.0.0.0/8' is not an IPv4 or IPv6 address"},
      {{"7_r=f"}, "'f' is not pairs of hexadecimal digits"},
      {{"7_r=0x"}, "'0x' is not pairs of hexadecimal digits"},
      {{"7_ua=1,,2"}, "''" + noNumber},
      {{R"(7_sa=a\b)"}, badList},
      {{R"(7_sa=a\)"}, badList},
      {{"7_s:=text"}, "'text' is not JSON (byte 2)"},
      {{"7_s:=7"}, "7 is not a string"},
      {{R"(7_s:={"hex":"f"})"}, "'f' is not pairs of hexadecimal digits"},
      {{"7_b:=1"}, "1 is not true or false"},
      {{"7_u:=-1"}, "-1" + noNumber},
      {{"7_u:=4294967296"}, "4294967296" + noNumber},
      {{"7_u:=1.0"}, "1.0" + noNumber},
      {{"7_q:=18446744073709551616"}, "1.8446744073709552e+19" + noLongNumber},
      {{"7_ua:=1"}, "1 is not a JSON array"},
      {{"7_m=[]"}, "[] is not a JSON object"},
      {{R"(7_m={"x":1})"}, "'x' names no field"},
      {{R"(7_m={"1_u":1,"1_u":2})"}, "the name '1_u' stands twice in one JSON object"},
      {{R"(7_m={"1_u":1,"0x1_u":2})"}, "the field '0x1_u' stands twice in one JSON object"},
      {{nested(16)}, std::string(16, '[') + std::string(16, ']') + " is not a JSON object"},
      {{nested(17)}, "the JSON is nested more than 16 deep"},
      {{nested(1000000)}, "the JSON is nested more than 16 deep"},
      {{"=1"}, "no field is called ''"},
      {{"7_x=1"}, "no field is called '7_x'"},
      {{"16777216_u=1"}, "no field is called '16777216_u'"},
      {{"16711681_ua=1"}, "this field is not given by hand"},  // the route
      {{"id=1"}, "this field is not given by hand"},
      {{"7"}, "not of the form name=value"},
      {{"7_u=1", "7_u=1"}, "the field is given twice"},
      {{"7_u=1", "7_u-"}, "the field is both given and removed"},
      {{"7_u-", "7_u=1"}, "the field is both given and removed"},
  };
  for (const auto& [arguments, complaint] : table) {
    try {
      readFields(arguments, {});
      ADD_FAILURE() << arguments.back() << " was taken";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status, Exit::usage);
      EXPECT_EQ(failure.text, "argument '" + arguments.back() + "': " + complaint);
    }
  }
}

Dictionary dictionary(const std::vector<std::pair<std::uint32_t, std::string>>& words) {
  message description;
  for (const auto& [uid, word] : words)
    description.append(nv::key::objects,
                       message{{nv::describe_key::uid, uid}, {nv::describe_key::word, word}});
  return Dictionary(description);
}

TEST(Fields, TakeTheWordsOfTheServiceAndItsOrder) {
  const nv::string_id host(1);
  const auto names = dictionary({{host.uid(), "host"},
                                 {nv::bool_id(3).uid(), "off"},
                                 {nv::addr6_array_id(2).uid(), "addresses"},
                                 {nv::message_id(4).uid(), "link"}});
  const auto given = readFields(
      {"addresses=10.0.0.1", "host=printer", "9_u=1", "off=true", R"(link={"host":"other"})"},
      names);
  EXPECT_EQ(fieldWords(given, names), (Words{"host=printer", "off=true", "addresses=10.0.0.1",
                                             R"(link='{"host":"other"}')", "9_u=1"}));
  const auto removed = readFields({"host-", "9_u-"}, names);
  EXPECT_TRUE(removed == (message{{nv::key::removals, {host.uid(), nv::u32_id(9).uid()}}}));
  EXPECT_EQ(fieldWords(removed, names), (Words{"host-", "9_u-"}));
}

TEST(Fields, HaveTheWordsThatSomebodyCanTypeAndMean) {
  const auto names = dictionary({{0x08000001, "good"},
                                 {0x08000002, "two words"},
                                 {0x08000003, "a=b"},
                                 {0x08000004, ""},
                                 {0x08000005, "7_u"},
                                 {0x38000006, "untyped"},
                                 {0x08000001, "again"},
                                 {0x08000007, "good"},
                                 {0x0f000008, "odd"},  // with bits that mean nothing
                                 {0x08000009, "name"}});
  Words words;
  for (const auto& key : names.keys()) words.push_back(key.word);
  EXPECT_EQ(words, (Words{"good", "odd", "name"}));
  EXPECT_EQ(names.nameOf(0x08000007), "7_u");
  EXPECT_EQ(names.uidOf("odd"), 0x08000008U);
  EXPECT_EQ(names.uidOf("name"), 0x08000009U) << "before the platform's own word";
  EXPECT_EQ(names.nameOf(nv::key::name.uid()), "16646160_s");
}

}  // namespace
}  // namespace confctl
