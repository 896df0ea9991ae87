/// Timers and hooks: what is called when.

#include "platform/timer.h"

#include "platform/runner.h"
#include "tests/platform/bus_fixture.h"

namespace nv::testkit {
namespace {

TEST_F(Loop, TimersFireAtTheirOwnTimeInOrder) {
  const Timer late(30, [&] { note("30"); });
  const Timer early(10, [&] { note("10"); });
  const Timer sameTime(10, [&] { note("10b"); });
  kit.advance(9);
  EXPECT_EQ(taken(), "");
  kit.advance(1);
  EXPECT_EQ(taken(), "10 10b");
  EXPECT_FALSE(early.running());
  EXPECT_TRUE(late.running());
  kit.advance(100);
  EXPECT_EQ(taken(), "30");
}

TEST_F(Loop, ATimerStopsWhenItGoesOrIsReplaced) {
  {
    const Timer gone(1, [&] { note("gone"); });
  }
  Timer replaced(1, [&] { note("replaced"); });
  replaced = Timer(2, [&] { note("new"); });
  Timer moved(1, [&] { note("moved"); });
  const Timer holder(std::move(moved));
  auto own = std::make_unique<Timer>();
  *own = Timer(3, [&] {
    own.reset();  // from within its own function
    note("own");
  });
  kit.advance(5);
  EXPECT_EQ(taken(), "moved new own");
}

TEST_F(Bus, AZeroTimerFiresInTheNextPassWhetherATimerACommandOrAHookArmsIt) {
  static std::string fired;  // the hook is kept for ever
  static Timer byHook;
  getRunner().addBeforeSleep([] {
    static bool armed = false;
    if (!std::exchange(armed, true)) byHook = Timer(0, [] { fired += 'h'; });
  });
  struct Deferring : ListHandler {
    message cmdGet(const message&) override {
      timer = Timer(0, [] { fired += 'c'; });
      return {};
    }
    Timer timer;
  } handler;
  serve(handler);
  Timer timer;
  std::function<void()> again = [&] {
    fired += 't';
    timer = Timer(0, again);
  };
  timer = Timer(0, again);
  auto peer = kit.connect();
  peer->send(command(1, cmd::get));
  for (const auto* const inPass : {"t", "cth", "t"}) {
    kit.pass();
    EXPECT_EQ(std::exchange(fired, {}), inPass);
  }
}

TEST(LoopWithoutAnEngine, SaysThatItCannotRunInsteadOfSpinning) {
  getLooper()->assemble({});
  testing::internal::CaptureStderr();
  EXPECT_EQ(getLooper()->run(), EXIT_FAILURE);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "the loop of this process has nothing to wait with: make a Service, or connectBus\n");
}

}  // namespace
}  // namespace nv::testkit
