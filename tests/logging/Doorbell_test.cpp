#include "logging/Doorbell.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/fake/FakeLogging.h"
#include "tests/support/Eventually.h"

namespace {

class DoorbellTest : public testing::Test {
 protected:
  // Whether `sleep`, on a thread of its own, comes back by itself. Wakes it up if not.
  bool returnsByItself(Doorbell& bell, const std::function<void()>& sleep) {
    std::atomic<bool> isBack{false};
    std::thread sleeper([&] {
      sleep();
      isBack = true;
    });
    const bool isByItself = tests::eventually([&] { return isBack.load(); }, std::chrono::seconds(5));
    while (!isBack) {
      bell.wake();
      std::this_thread::yield();
    }
    sleeper.join();
    return isByItself;
  }

  Doorbell bell{nullptr};
};

}  // namespace

TEST_F(DoorbellTest, ASleeperThatWasNeverAwakeMustBeWokenByTheFirstCallerOnly) {
  EXPECT_TRUE(bell.mustWake());
  EXPECT_FALSE(bell.mustWake());
}

TEST_F(DoorbellTest, ASleeperThatFindsWorkAtItsLastLookDoesNotSleep) {
  ASSERT_TRUE(bell.mustWake());
  EXPECT_TRUE(returnsByItself(bell, [&] { bell.sleepUnless([] { return true; }); }));
  EXPECT_FALSE(bell.mustWake());
}

TEST_F(DoorbellTest, ACallerThatComesBetweenTheLastLookAndTheSleepWakes) {
  ASSERT_TRUE(bell.mustWake());
  const auto sleep = [&] {
    bell.sleepUnless([&] {
      if (bell.mustWake()) bell.wake();
      return false;
    });
  };
  EXPECT_TRUE(returnsByItself(bell, sleep));
}

TEST_F(DoorbellTest, ASleeperWithoutWorkSleepsUntilACallerWakesIt) {
  ASSERT_TRUE(bell.mustWake());
  std::atomic<bool> isBack{false};
  std::thread sleeper([&] {
    bell.sleepUnless([] { return false; });
    isBack = true;
  });
  // It is told once, and only when it is asleep.
  ASSERT_TRUE(tests::eventually([&] { return bell.mustWake(); }));
  EXPECT_FALSE(isBack);
  bell.wake();
  sleeper.join();
}
