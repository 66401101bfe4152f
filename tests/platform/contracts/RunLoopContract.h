#pragma once
// The contract of RunLoop and Timer.
//
// A World has: `runLoop()`; `waitFor(condition)`, which lets time pass until the condition holds, and false if it never
// does; `pass(seconds)`, which lets time pass while the loop runs; `beBusy(seconds)`, which lets it pass while the main
// thread is busy; `pause()` and `resume()`, as for a modal alert.
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "foundation/dispatch/RunLoop.h"

namespace tests::contracts {

using foundation::Seconds;

template <class World>
class RunLoopContract : public testing::Test {
 protected:
  foundation::RunLoop& runLoop() { return world.runLoop(); }
  // Calls for `receiver` after the delay, adding the letter to the trace.
  void call(double delay, const int& receiver, char letter) {
    runLoop().performAfterDelay(Seconds(delay), &receiver, [this, letter] { trace += letter; });
  }
  bool traces(const std::string& expected) {
    return world.waitFor([&] { return trace.size() >= expected.size(); }) && trace == expected;
  }

  World world;
  std::string trace;
  int target = 0;
  int otherTarget = 0;
};

TYPED_TEST_SUITE_P(RunLoopContract);

TYPED_TEST_P(RunLoopContract, DelayedCallsRunInTheOrderInWhichTheyAreDue) {
  this->call(0.03, this->target, 'd');
  this->call(0.01, this->target, 'a');
  this->call(0.02, this->target, 'b');
  this->call(0.02, this->target, 'c');
  EXPECT_TRUE(this->traces("abcd")) << this->trace;
}

TYPED_TEST_P(RunLoopContract, ACallIsNeverMadeInsideTheRequestForIt) {
  this->call(0, this->target, 'a');
  this->call(-1, this->target, 'b');
  this->call(std::numeric_limits<double>::quiet_NaN(), this->target, 'c');
  EXPECT_EQ(this->trace, "");
  EXPECT_TRUE(this->traces("abc")) << this->trace;
}

TYPED_TEST_P(RunLoopContract, ACallIsNotMadeBeforeItsTimeAndTheDateMovesOn) {
  const auto start = this->runLoop().currentDate();
  foundation::Date made{};
  this->runLoop().performAfterDelay(Seconds(0.05), &this->target, [&] { made = this->runLoop().currentDate(); });
  EXPECT_TRUE(this->world.waitFor([&] { return made != foundation::Date{}; }));
  EXPECT_GE(made - start, Seconds(0.049));
}

TYPED_TEST_P(RunLoopContract, CancellingForgetsTheCallsForThatTargetOnly) {
  this->call(0.01, this->target, 'x');
  this->call(0.02, this->otherTarget, 'a');
  this->runLoop().cancelPreviousPerformRequests(&this->target);
  this->call(0.03, this->target, 'b');
  EXPECT_TRUE(this->traces("ab")) << this->trace;
}

TYPED_TEST_P(RunLoopContract, ACallCanCancelTheNextAndAskForAnother) {
  this->runLoop().performAfterDelay(Seconds(0), &this->target, [this] {
    this->runLoop().cancelPreviousPerformRequests(&this->target);
    this->call(0, this->target, 'a');
  });
  this->call(0, this->target, 'x');
  this->call(0.01, this->otherTarget, 'b');
  EXPECT_TRUE(this->traces("ab")) << this->trace;
}

TYPED_TEST_P(RunLoopContract, WhilePausedNothingRunsAndAfterwardsAllInTheOrderInWhichItWasDue) {
  this->world.pause();
  const auto timer =
      this->runLoop().scheduledTimer(Seconds(0.02), false, [this](foundation::Timer&) { this->trace += 'b'; });
  this->call(0.03, this->target, 'c');
  this->call(0.01, this->target, 'a');
  this->world.pass(Seconds(0.05));
  EXPECT_EQ(this->trace, "");
  this->world.resume();
  EXPECT_EQ(this->trace, "");
  EXPECT_TRUE(this->traces("abc")) << this->trace;
}

TYPED_TEST_P(RunLoopContract, ARepeatingTimerFiresEveryIntervalFromOneIntervalOn) {
  std::vector<Seconds> ticks;
  const auto start = this->runLoop().currentDate();
  const auto timer = this->runLoop().scheduledTimer(
      Seconds(0.02), true, [&](foundation::Timer&) { ticks.emplace_back(this->runLoop().currentDate() - start); });
  EXPECT_TRUE(this->world.waitFor([&] { return ticks.size() == 3; }));
  timer->invalidate();
  EXPECT_GE(ticks[0], Seconds(0.019));
  EXPECT_GE(ticks[2], Seconds(0.059));
}

TYPED_TEST_P(RunLoopContract, TicksThatWereMissedAreSkipped) {
  int ticks = 0;
  int ticksAfterwards = 0;
  const auto timer = this->runLoop().scheduledTimer(Seconds(0.02), true, [&](foundation::Timer&) {
    if (++ticks == 1) this->world.beBusy(Seconds(0.09));
    if (ticks == 2) this->runLoop().performAfterDelay(Seconds(0), &this->target, [&] { ticksAfterwards = ticks; });
  });
  EXPECT_TRUE(this->world.waitFor([&] { return ticksAfterwards > 0; }));
  EXPECT_EQ(ticksAfterwards, 2);
  timer->invalidate();
}

TYPED_TEST_P(RunLoopContract, AfterAPauseARepeatingTimerTicksOnceForAllThatItMissed) {
  int ticks = 0;
  const auto timer = this->runLoop().scheduledTimer(Seconds(0.02), true, [&](foundation::Timer&) { ++ticks; });
  this->world.pause();
  this->world.beBusy(Seconds(0.11));
  int ticksAtOnce = -1;
  this->runLoop().performAfterDelay(Seconds(0), &this->target, [&] { ticksAtOnce = ticks; });
  this->world.resume();
  EXPECT_TRUE(this->world.waitFor([&] { return ticksAtOnce >= 0; }));
  EXPECT_EQ(ticksAtOnce, 1);
  timer->invalidate();
}

TYPED_TEST_P(RunLoopContract, ATimerInvalidatedInItsOwnCallNeverFiresAgain) {
  int ticks = 0;
  const auto timer = this->runLoop().scheduledTimer(Seconds(0.005), true, [&](foundation::Timer& self) {
    ++ticks;
    self.invalidate();
    self.invalidate();
  });
  this->call(0.05, this->target, 'a');
  EXPECT_TRUE(this->traces("a"));
  EXPECT_EQ(ticks, 1);
  EXPECT_FALSE(timer->isValid());
}

TYPED_TEST_P(RunLoopContract, ATimerThatDoesNotRepeatFiresOnceAndIsInvalidThen) {
  bool wasValidInside = true;
  const auto timer = this->runLoop().scheduledTimer(Seconds(0.005), false, [&](foundation::Timer& self) {
    this->trace += 't';
    wasValidInside = self.isValid();
  });
  EXPECT_TRUE(timer->isValid());
  this->call(0.05, this->target, 'a');
  EXPECT_TRUE(this->traces("ta")) << this->trace;
  EXPECT_FALSE(wasValidInside);
  EXPECT_FALSE(timer->isValid());
}

TYPED_TEST_P(RunLoopContract, TheLoopKeepsATimerThatNobodyHolds) {
  this->runLoop().scheduledTimer(Seconds(0.005), false, [this](foundation::Timer&) { this->trace += 'a'; });
  EXPECT_TRUE(this->traces("a"));
}

TYPED_TEST_P(RunLoopContract, CancellingCallsLeavesTimersAlone) {
  const auto timer =
      this->runLoop().scheduledTimer(Seconds(0.01), false, [this](foundation::Timer&) { this->trace += 'a'; });
  this->runLoop().cancelPreviousPerformRequests(&this->target);
  EXPECT_TRUE(this->traces("a"));
}

REGISTER_TYPED_TEST_SUITE_P(RunLoopContract, DelayedCallsRunInTheOrderInWhichTheyAreDue,
                            ACallIsNeverMadeInsideTheRequestForIt, ACallIsNotMadeBeforeItsTimeAndTheDateMovesOn,
                            CancellingForgetsTheCallsForThatTargetOnly, ACallCanCancelTheNextAndAskForAnother,
                            WhilePausedNothingRunsAndAfterwardsAllInTheOrderInWhichItWasDue,
                            ARepeatingTimerFiresEveryIntervalFromOneIntervalOn, TicksThatWereMissedAreSkipped,
                            AfterAPauseARepeatingTimerTicksOnceForAllThatItMissed,
                            ATimerInvalidatedInItsOwnCallNeverFiresAgain, ATimerThatDoesNotRepeatFiresOnceAndIsInvalidThen,
                            TheLoopKeepsATimerThatNobodyHolds, CancellingCallsLeavesTimersAlone);

}  // namespace tests::contracts
