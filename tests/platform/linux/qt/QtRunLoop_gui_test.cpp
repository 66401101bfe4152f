#include "platform/linux/qt/QtRunLoop.h"

#include <ctime>
#include <limits>

#include "tests/platform/linux/qt/QtTest.h"

using namespace foundation;
using namespace platform;
using namespace platform::Linux;
using namespace tests;

namespace {

using std::chrono::steady_clock;

double secondsSince(steady_clock::time_point start) { return Seconds(steady_clock::now() - start).count(); }

void busyFor(double seconds) {
  const auto start = steady_clock::now();
  while (secondsSince(start) < seconds) {
  }
}

struct QtRunLoopTest : testing::Test {
  QtRunLoop runLoop;
  std::string trace;
  int target = 0;
  int otherTarget = 0;

  std::function<void()> note(char letter) {
    return [this, letter] { trace += letter; };
  }
};

TEST_F(QtRunLoopTest, DelayedCallsRunInTheOrderInWhichTheyAreDue) {
  runLoop.performAfterDelay(Seconds(0.03), &target, note('c'));
  runLoop.performAfterDelay(Seconds(0.01), &target, note('a'));
  runLoop.performAfterDelay(Seconds(0.02), &target, note('b'));
  EXPECT_TRUE(spinUntil([this] { return trace.size() == 3; }));
  EXPECT_EQ(trace, "abc");
}

TEST_F(QtRunLoopTest, ACallIsNeverMadeInsideTheRequestForIt) {
  runLoop.performAfterDelay(Seconds(0), &target, note('a'));
  runLoop.performAfterDelay(Seconds(-1), &target, note('b'));
  runLoop.deliver(note('c'));
  EXPECT_EQ(trace, "");
  EXPECT_TRUE(spinUntil([this] { return trace == "abc"; }));
}

TEST_F(QtRunLoopTest, ACallIsNotMadeBeforeItsTime) {
  const auto start = steady_clock::now();
  double elapsed = 0;
  runLoop.performAfterDelay(Seconds(0.0525), &target, [&] { elapsed = secondsSince(start); });
  EXPECT_TRUE(spinUntil([&] { return elapsed > 0; }));
  EXPECT_GE(elapsed, 0.0525);
}

TEST_F(QtRunLoopTest, CancellingForgetsTheCallsForThatTargetOnly) {
  runLoop.performAfterDelay(Seconds(0.01), &target, note('a'));
  runLoop.performAfterDelay(Seconds(0.02), &otherTarget, note('b'));
  runLoop.performAfterDelay(Seconds(0.03), &target, note('c'));
  runLoop.cancelPreviousPerformRequests(&target);
  runLoop.performAfterDelay(Seconds(0.04), &target, note('d'));
  EXPECT_TRUE(spinUntil([this] { return trace.ends_with('d'); }));
  EXPECT_EQ(trace, "bd");
}

TEST_F(QtRunLoopTest, ACallCanCancelTheNext) {
  runLoop.performAfterDelay(Seconds(0), &target, [this] { runLoop.cancelPreviousPerformRequests(&target); });
  runLoop.performAfterDelay(Seconds(0), &target, note('x'));
  runLoop.performAfterDelay(Seconds(0.01), &otherTarget, note('a'));
  EXPECT_TRUE(spinUntil([this] { return !trace.empty(); }));
  EXPECT_EQ(trace, "a");
}

TEST_F(QtRunLoopTest, WhilePausedNothingRunsAndAfterwardsAllInTheOrderInWhichItWasDue) {
  auto pause = std::make_unique<QtRunLoop::Pause>(runLoop);
  const auto timer = runLoop.scheduledTimer(Seconds(0.02), false, [this](Timer&) { trace += 'b'; });
  runLoop.performAfterDelay(Seconds(0.03), &target, note('c'));
  runLoop.performAfterDelay(Seconds(0.01), &target, note('a'));
  const auto start = steady_clock::now();
  EXPECT_TRUE(spinUntil([&] { return secondsSince(start) > 0.06; }));
  runLoop.deliver(note('d'));
  EXPECT_EQ(trace, "");
  pause.reset();
  EXPECT_EQ(trace, "");
  EXPECT_TRUE(spinUntil([this] { return trace.size() == 4; }));
  EXPECT_EQ(trace, "abcd");
}

TEST_F(QtRunLoopTest, WhilePausedWhatIsDueCostsNoProcessorTime) {
  runLoop.performAfterDelay(Seconds(0), &target, note('a'));
  const QtRunLoop::Pause pause(runLoop);
  runLoop.performAfterDelay(Seconds(0), &target, note('b'));
  const auto start = steady_clock::now();
  const auto processorStart = std::clock();
  EXPECT_TRUE(spinUntil([&] { return secondsSince(start) > 0.3; }));
  EXPECT_LT(static_cast<double>(std::clock() - processorStart) / CLOCKS_PER_SEC, 0.15);
}

TEST_F(QtRunLoopTest, PausesNest) {
  auto outer = std::make_unique<QtRunLoop::Pause>(runLoop);
  auto inner = std::make_unique<QtRunLoop::Pause>(runLoop);
  runLoop.performAfterDelay(Seconds(0), &target, note('a'));
  inner.reset();
  const auto start = steady_clock::now();
  EXPECT_TRUE(spinUntil([&] { return secondsSince(start) > 0.03; }));
  EXPECT_TRUE(runLoop.isPaused());
  EXPECT_EQ(trace, "");
  outer.reset();
  EXPECT_TRUE(spinUntil([this] { return trace == "a"; }));
}

TEST_F(QtRunLoopTest, ACallThatPausesKeepsTheNextOneWaiting) {
  std::unique_ptr<QtRunLoop::Pause> pause;
  runLoop.performAfterDelay(Seconds(0), &target, [&] { pause = std::make_unique<QtRunLoop::Pause>(runLoop); });
  runLoop.performAfterDelay(Seconds(0), &target, note('a'));
  EXPECT_TRUE(spinUntil([&] { return pause != nullptr; }));
  EXPECT_EQ(trace, "");
  pause.reset();
  EXPECT_TRUE(spinUntil([this] { return trace == "a"; }));
}

TEST_F(QtRunLoopTest, TicksThatWereMissedAreSkipped) {
  std::vector<double> ticks;
  const auto start = steady_clock::now();
  const auto timer = runLoop.scheduledTimer(Seconds(0.05), true, [&](Timer&) {
    ticks.push_back(secondsSince(start));
    if (ticks.size() == 1) busyFor(0.16);
  });
  EXPECT_TRUE(spinUntil([&] { return ticks.size() == 2; }));
  timer->invalidate();
  EXPECT_GE(ticks[1] - ticks[0], 0.16);
  const double beyondGrid = std::fmod(ticks[1], 0.05);
  EXPECT_LT(beyondGrid, 0.045) << "the tick after a gap stays on the timer's grid";
}

TEST_F(QtRunLoopTest, AfterAPauseARepeatingTimerTicksOnceForAllThatItMissed) {
  int ticks = 0;
  const auto timer = runLoop.scheduledTimer(Seconds(0.01), true, [&](Timer&) { ++ticks; });
  int ticksAtOnce = -1;
  {
    const QtRunLoop::Pause pause(runLoop);
    busyFor(0.1);
  }
  runLoop.deliver([&] { ticksAtOnce = ticks; });
  EXPECT_TRUE(spinUntil([&] { return ticksAtOnce >= 0; }));
  EXPECT_EQ(ticksAtOnce, 1);
  timer->invalidate();
}

TEST_F(QtRunLoopTest, ATimerInvalidatedInItsOwnCallNeverFiresAgain) {
  int ticks = 0;
  const auto timer = runLoop.scheduledTimer(Seconds(0.005), true, [&](Timer& self) {
    ++ticks;
    self.invalidate();
    self.invalidate();
  });
  runLoop.performAfterDelay(Seconds(0.05), &target, note('a'));
  EXPECT_TRUE(spinUntil([this] { return trace == "a"; }));
  EXPECT_EQ(ticks, 1);
  EXPECT_FALSE(timer->isValid());
}

TEST_F(QtRunLoopTest, ATimerThatDoesNotRepeatFiresOnceAndIsInvalidThen) {
  int ticks = 0;
  const auto timer = runLoop.scheduledTimer(Seconds(0.005), false, [&](Timer&) { ++ticks; });
  EXPECT_TRUE(timer->isValid());
  runLoop.performAfterDelay(Seconds(0.05), &target, note('a'));
  EXPECT_TRUE(spinUntil([this] { return trace == "a"; }));
  EXPECT_EQ(ticks, 1);
  EXPECT_FALSE(timer->isValid());
}

TEST_F(QtRunLoopTest, TheLoopKeepsATimerThatNobodyHolds) {
  runLoop.scheduledTimer(Seconds(0.005), false, [this](Timer&) { trace += 'a'; });
  EXPECT_TRUE(spinUntil([this] { return trace == "a"; }));
}

TEST_F(QtRunLoopTest, AnEndlessOrUndefinedDelayIsBounded) {
  runLoop.performAfterDelay(Seconds(std::numeric_limits<double>::infinity()), &target, note('x'));
  runLoop.performAfterDelay(Seconds(std::numeric_limits<double>::quiet_NaN()), &target, note('a'));
  EXPECT_TRUE(spinUntil([this] { return !trace.empty(); }));
  EXPECT_EQ(trace, "a");
}

TEST_F(QtRunLoopTest, AfterStoppingNothingFires) {
  runLoop.performAfterDelay(Seconds(0), &target, [this] {
    trace += 'a';
    runLoop.stop();
  });
  runLoop.performAfterDelay(Seconds(0), &target, note('x'));
  runLoop.deliver(note('y'));
  const auto start = steady_clock::now();
  EXPECT_TRUE(spinUntil([&] { return secondsSince(start) > 0.05; }));
  EXPECT_EQ(trace, "a");
}

TEST_F(QtRunLoopTest, TheDateIsTheWallClocks) {
  const auto before = std::chrono::system_clock::now();
  const Date date = runLoop.currentDate();
  EXPECT_LE(before, date);
  EXPECT_LE(date, std::chrono::system_clock::now());
}

}  // namespace
