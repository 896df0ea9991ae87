/// What a long list says of itself on a terminal.
#include "tools/confctl/progress.h"

#include <sstream>

#include <gtest/gtest.h>

namespace confctl {
namespace {

TEST(Progress, IsShownOnATerminalWhenAListTakesLongAndGoneBeforeAnythingElseIsWritten) {
  const std::string clear = "\r\x1b[K";
  for (const bool isTerminal : {true, false}) {
    std::ostringstream out;
    const auto expect = [&](const std::string& text) {
      EXPECT_EQ(out.str(), isTerminal ? text : "");
      out.str("");
    };
    std::uint64_t now = 5000;
    {
      Progress progress(out, isTerminal, [&] { return now; });
      progress.show(10);
      now += Progress::kPatience - 1;
      progress.show(20);
      expect("");
      now += 1;
      progress.show(30);
      expect("30 objects after 1 s...");
      now += 1000;
      progress.show(30);
      expect(clear + "30 objects after 2 s...");
      progress.hide();
      progress.hide();
      expect(clear);
      progress.show(40);
    }
    expect("40 objects after 2 s..." + clear);
  }
}

}  // namespace
}  // namespace confctl
