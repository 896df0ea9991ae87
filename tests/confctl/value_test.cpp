/// What people type for a value of each type, and what they see, are the same thing.
#include <random>

#include <gtest/gtest.h>

#include "tests/confctl/sample.h"
#include "tools/confctl/failure.h"
#include "tools/confctl/fields.h"
#include "tools/confctl/value_json.h"

namespace confctl {
namespace {

using Bytes = std::vector<unsigned char>;

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

nv::message typedBack(const nv::message& m, const Dictionary& names) {
  std::vector<std::string> arguments;
  for (const std::string& word : fieldWords(m, names)) arguments.push_back(unquoted(word));
  return readFields(arguments, names);
}

std::string shown(const nv::message& m) {
  std::string text;
  for (const std::string& word : fieldWords(m, {})) text += (text.empty() ? "" : " ") + word;
  return text;
}

nv::addr6 address(std::string_view text) {
  nv::addr6 result;
  fromText(text, result);
  return result;
}

struct Sample {
  std::string word;  ///< as shown
  nv::message value;
};

std::vector<Sample> samples() {
  const nv::message inner{{nv::u32_id(1), 7}, {nv::string_id(2), "a b"}};
  return {
      {"7_b=true", {{nv::bool_id(7), true}}},
      {"7_b=false", {{nv::bool_id(7), false}}},
      {"7_u=4294967295", {{nv::u32_id(7), 0xffffffff}}},
      {"16777215_q=18446744073709551615", {{nv::u64_id(0xffffff), ~std::uint64_t{0}}}},
      {"7_a=192.0.2.1", {{nv::addr6_id(7), address("192.0.2.1")}}},
      {"7_a=2001:db8::1", {{nv::addr6_id(7), address("2001:db8::1")}}},
      {"7_a=::", {{nv::addr6_id(7), nv::addr6{}}}},
      {"7_s=", {{nv::string_id(7), ""}}},
      {"7_s='two words'", {{nv::string_id(7), "two words"}}},
      {R"(7_s='it'\''s $HOME\')", {{nv::string_id(7), R"(it's $HOME\)"}}},
      {R"(7_s:='"a\nb"')", {{nv::string_id(7), "a\nb"}}},
      {R"(7_s:='"\u0000"')", {{nv::string_id(7), std::string_view("\0", 1)}}},
      {R"(7_s:='{"hex":"ff00"}')", {{nv::string_id(7), std::string_view("\xff\0", 2)}}},
      {"7_s='\xc3\xa9'", {{nv::string_id(7), "\xc3\xa9"}}},
      {R"(7_s:='"\u202ex"')", {{nv::string_id(7), "\xe2\x80\xaex"}}},  // would turn the line round
      {R"(7_m='{"1_u":7,"2_s":"a b"}')", {{nv::message_id(7), inner}}},
      {"7_m='{}'", {{nv::message_id(7), nv::message()}}},
      {"7_r=00ff", {{nv::raw_id(7), Bytes{0, 0xff}}}},
      {"7_r=", {{nv::raw_id(7), Bytes{}}}},
      {"7_ba=true,false", {{nv::bool_array_id(7), {1, 0}}}},
      {"7_ua=1,2", {{nv::u32_array_id(7), {1, 2}}}},
      {"7_ua=", {{nv::u32_array_id(7), std::vector<std::uint32_t>{}}}},
      {"7_qa=1,5000000000", {{nv::u64_array_id(7), {1, 5000000000}}}},
      {"7_aa=10.0.0.1,fe80::1",
       {{nv::addr6_array_id(7), {address("10.0.0.1"), address("fe80::1")}}}},
      {R"(7_sa='a\,b,\\,c d,')", {{nv::string_array_id(7), {"a,b", "\\", "c d", ""}}}},
      {R"(7_sa:='[""]')", {{nv::string_array_id(7), {""}}}},
      {R"(7_sa:='["a\tb",{"hex":"80"}]')", {{nv::string_array_id(7), {"a\tb", "\x80"}}}},
      {R"(7_ma='[{"1_u":7,"2_s":"a b"},{}]')", {{nv::message_array_id(7), {inner, nv::message()}}}},
      {"7_ra=00,,ff", {{nv::raw_array_id(7), std::vector<Bytes>{{0}, {}, {0xff}}}}},
      {R"(7_ra:='[""]')", {{nv::raw_array_id(7), std::vector<Bytes>{{}}}}},
  };
}

TEST(Values, AreShownAsTheWordThatGivesThemBack) {
  for (const Sample& sample : samples()) {
    EXPECT_EQ(shown(sample.value), sample.word);
    EXPECT_TRUE(typedBack(sample.value, {}) == sample.value) << sample.word;
  }
}

/// Random values of all types, with what is hard in each: odd bytes, empty elements, nesting.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  nv::message message(unsigned depth = 0) {
    nv::message m;
    for (std::uint32_t fields = below(5); fields > 0; --fields) {
      const std::uint32_t base = below(depth < 3 ? 7 : 5);
      const std::uint32_t uid = (base << 27) | (below(2) << 31) | (5 + below(0xfdff));
      nv::withId(uid, [&](auto id) { insert(m, id, depth + 1); });
    }
    return m;
  }

 private:
  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }

  template <class T>
  void insert(nv::message& m, T id, unsigned depth) {
    typename nv::IdTraits<T>::type value{};
    if constexpr (nv::ArrayId<T>) {
      value.resize(below(4));
      for (auto& element : value) make(element, depth);
    } else {
      make(value, depth);
    }
    m.insert(id, value);
  }

  void make(bool& value, unsigned) { value = below(2) == 1; }
  void make(unsigned char& value, unsigned) { value = static_cast<unsigned char>(below(2)); }
  void make(std::uint32_t& value, unsigned) { value = static_cast<std::uint32_t>(random_()); }
  void make(std::uint64_t& value, unsigned) { value = random_(); }
  void make(nv::addr6& value, unsigned) {
    if (below(2) == 1) fromText("192.0.2.1", value);
    for (auto& byte : value.bytes)
      byte = below(3) == 0 ? static_cast<unsigned char>(below(256)) : byte;
  }
  void make(std::string& value, unsigned) {
    constexpr std::string_view odd[] = {"a", "B7", ",",    "\\",       "'", "\"",
                                        " ", "\n", "\xff", "\xc3\xa9", "{"};
    for (std::uint32_t k = below(6); k > 0; --k) value += odd[below(std::size(odd))];
    if (below(8) == 0) value += '\0';
  }
  void make(Bytes& value, unsigned) {
    value.resize(below(4));
    for (auto& byte : value) byte = static_cast<unsigned char>(below(256));
  }
  void make(nv::flat_message& value, unsigned depth) { value = message(depth).flat(); }

  std::mt19937_64 random_;
};

TEST(Values, OfAllTypesComeBackFromTextAndFromJson) {
  const unsigned seed = std::random_device()();
  Generator generator(seed);
  const Dictionary names;
  for (int k = 0; k < 3000; ++k) {
    const nv::message m = generator.message();
    ASSERT_TRUE(typedBack(m, names) == m) << "seed " << seed << " round " << k << ": " << shown(m);
    nv::message fromJson;
    for (const nv::field& f : m) {
      insertJson(fromJson, f.uid(), parseJson(dumpJson(jsonOf(f, names))), names);
    }
    ASSERT_TRUE(fromJson == m) << "seed " << seed << " round " << k << ": " << shown(m);
  }
}

struct Bad {
  std::string argument, complaint;
};

TEST(Values, ThatAreWrongAreRefusedWithTheirArgumentAndTheReason) {
  const std::string deep = "7_m:=" + std::string(17, '[') + std::string(17, ']');
  const Bad table[] = {
      {"7_b=yes", "'yes' is not true or false"},
      {"7_b=", "'' is not true or false"},
      {"7_u=-1", "'-1' is not a number from 0 to 4294967295"},
      {"7_u=4294967296", "'4294967296' is not a number from 0 to 4294967295"},
      {"7_u=7 ", "'7 ' is not a number from 0 to 4294967295"},
      {"7_u=0x", "'0x' is not a number from 0 to 4294967295"},
      {"7_u=", "'' is not a number from 0 to 4294967295"},
      {"7_q=18446744073709551616",
       "'18446744073709551616' is not a number from 0 to 18446744073709551615"},
      {"7_a=192.0.2.256", "'192.0.2.256' is not an IPv4 or IPv6 address"},
      {"7_a=10.0.0.0/8", "'10.0.0.0/8' is not an IPv4 or IPv6 address"},
      {"7_r=f", "'f' is not pairs of hexadecimal digits"},
      {"7_r=0x", "'0x' is not pairs of hexadecimal digits"},
      {"7_ua=1,,2", "'' is not a number from 0 to 4294967295"},
      {R"(7_sa=a\b)", "in a list a backslash stands before a comma or a backslash only"},
      {R"(7_sa=a\)", "in a list a backslash stands before a comma or a backslash only"},
      {"7_s:=text", "'text' is not JSON (byte 2)"},
      {"7_s:=7", "7 is not a string"},
      {R"(7_s:={"hex":"f"})", "'f' is not pairs of hexadecimal digits"},
      {"7_b:=1", "1 is not true or false"},
      {"7_u:=-1", "-1 is not a number from 0 to 4294967295"},
      {"7_u:=4294967296", "4294967296 is not a number from 0 to 4294967295"},
      {"7_u:=1.0", "1.0 is not a number from 0 to 4294967295"},
      {"7_q:=18446744073709551616",
       "1.8446744073709552e+19 is not a number from 0 to 18446744073709551615"},
      {"7_ua:=1", "1 is not a JSON array"},
      {"7_m=[]", "[] is not a JSON object"},
      {R"(7_m={"x":1})", "'x' names no field"},
      {R"(7_m={"1_u":1,"1_u":2})", "the name '1_u' stands twice in one JSON object"},
      {R"(7_m={"1_u":1,"0x1_u":2})", "the field '0x1_u' stands twice in one JSON object"},
      {deep, "the JSON is nested more than 16 deep"},
      {"x=1", "no field is called 'x'"},
      {"=1", "no field is called ''"},
      {"7_x=1", "no field is called '7_x'"},
      {"16777216_u=1", "no field is called '16777216_u'"},
      {"16711681_ua=1", "this field is not given by hand"},  // the route
      {"id=1", "this field is not given by hand"},
      {"7", "not of the form name=value"},
  };
  for (const Bad& bad : table) {
    try {
      readFields({bad.argument}, {});
      ADD_FAILURE() << bad.argument << " was taken";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.status, Exit::usage);
      EXPECT_EQ(failure.text, "argument '" + bad.argument + "': " + bad.complaint);
    }
  }
}

TEST(Values, InHexadecimalAreTheSameNumbers) {
  EXPECT_TRUE(readFields({"7_u=0xFF", "0x10_q=0xffffffffffffffff"}, {}) ==
              (nv::message{{nv::u32_id(7), 255}, {nv::u64_id(16), ~std::uint64_t{0}}}));
}

TEST(Fields, TakeTheWordsOfTheServiceAndItsOrder) {
  const Dictionary names = sample::dictionary();
  const nv::message m = readFields(
      {"addresses=10.0.0.1", "host=printer", "9_u=1", "off=true", R"(link={"host":"other"})"},
      names);
  const std::vector<std::string> expected = {"host=printer", "off=true", "addresses=10.0.0.1",
                                             R"(link='{"host":"other"}')", "9_u=1"};
  EXPECT_EQ(fieldWords(m, names), expected);
}

TEST(Fields, OfAListGoOnWhenTheyAreGivenAgain) {
  EXPECT_EQ(shown(readFields({"7_ua=1,2", "7_ua=3", "7_sa=", "7_sa=x"}, {})), "7_ua=1,2,3 7_sa=x");
}

TEST(Fields, ThatContradictOneAnotherAreRefused) {
  const std::vector<std::string> table[] = {
      {"7_u=1", "7_u=1"}, {"7_u=1", "7_u-"}, {"7_u-", "7_u=1"}};
  for (const auto& arguments : table) EXPECT_THROW(readFields(arguments, {}), Failure);
}

TEST(Fields, ThatAreRemovedStandInTheRemovalList) {
  const Dictionary names = sample::dictionary();
  const nv::message m = readFields({"host-", "9_u-"}, names);
  EXPECT_TRUE(m == (nv::message{{nv::key::removals, {sample::host.uid(), nv::u32_id(9).uid()}}}));
  EXPECT_EQ(fieldWords(m, names), (std::vector<std::string>{"host-", "9_u-"}));
}

TEST(Json, NestedAsDeepAsAllowedIsTakenAndOneLevelMoreIsNot) {
  const auto nested = [](int depth) {
    const auto count = static_cast<std::size_t>(depth);
    return std::string(count, '[') + std::string(count, ']');
  };
  EXPECT_NO_THROW(parseJson(nested(kMaxJsonDepth)));
  EXPECT_THROW(parseJson(nested(kMaxJsonDepth + 1)), BadValue);
  EXPECT_THROW(parseJson(std::string(1000000, '[')), BadValue);
}

}  // namespace
}  // namespace confctl
