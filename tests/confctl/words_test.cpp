#include "tools/confctl/words.h"

#include <gtest/gtest.h>

namespace confctl {
namespace {

TEST(Words, ThatCouldSteerATerminalAreShownEscaped) {
  EXPECT_EQ(printable("plain \xc3\xa9"), "plain \xc3\xa9");
  EXPECT_EQ(printable("\x1b[2J\n"), R"(\x1b[2J\x0a)");
  EXPECT_EQ(printable("\xc2\x9b"), R"(\xc2\x9b)");          // a control character of two bytes
  EXPECT_EQ(printable("\xe2\x80\xae"), R"(\xe2\x80\xae)");  // right to left from here
}

TEST(Words, AreUtf8OnlyInTheirShortestFormAndWhenTheyAreWhole) {
  for (const std::string_view good : {"", "a", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"})
    EXPECT_TRUE(isUtf8(good)) << printable(good);
  for (const std::string_view bad :
       {"\x80", "\xc3", "\xc0\x80", "\xe0\x80\x80", "\xed\xa0\x80", "\xe2\x82", "\xf4\x90\x80\x80",
        "\xff", "\xf0\x9f\x98", "\xc3\xa9\xc3", "\xc3(", "\xf5\x80\x80\x80"})
    EXPECT_FALSE(isUtf8(bad)) << printable(bad);
}

}  // namespace
}  // namespace confctl
