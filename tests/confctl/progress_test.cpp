/// What a long list says of itself on a terminal.
#include "tools/confctl/progress.h"

#include <sstream>

#include <gtest/gtest.h>

namespace confctl {
namespace {

constexpr const char* kClear = "\r\x1b[K";

TEST(Progress, IsShownWhenAListTakesLongAndGoneBeforeAnythingElseIsWritten) {
  std::ostringstream out;
  std::uint64_t now = 5000;
  {
    Progress progress(out, true, [&] { return now; });
    progress.show(10);
    now += Progress::kPatience - 1;
    progress.show(20);
    EXPECT_EQ(out.str(), "") << "not long yet";
    now += 1;
    progress.show(30);
    EXPECT_EQ(out.str(), "30 objects after 1 s...");
    out.str("");
    now += 1000;
    progress.show(30);
    EXPECT_EQ(out.str(), std::string(kClear) + "30 objects after 2 s...");
    out.str("");
    progress.hide();
    progress.hide();
    EXPECT_EQ(out.str(), kClear);
    out.str("");
    progress.show(40);
  }
  EXPECT_EQ(out.str(), std::string("40 objects after 2 s...") + kClear) << "at the end";
}

TEST(Progress, IsForTerminalsAlone) {
  std::ostringstream out;
  std::uint64_t now = 0;
  Progress progress(out, false, [&] { return now; });
  now = 100000;
  progress.show(10);
  progress.hide();
  EXPECT_EQ(out.str(), "");
}

}  // namespace
}  // namespace confctl
