#include "logging/Doorbell.h"

#include <gtest/gtest.h>

#include <functional>
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

// Where the sleeper fences for all threads.
class FencingProcess final : public platform::ProcessInfo {
 public:
  [[nodiscard]] std::string processName() const override { return "fencing"; }
  [[nodiscard]] std::int32_t processIdentifier() const override { return 1; }
  [[nodiscard]] std::uint32_t currentThreadIdentifier() const override { return 1; }
  [[nodiscard]] std::uint32_t processorCount() const override { return 2; }
  bool fenceOtherThreads() override {
    onFence();
    return true;
  }

  std::function<void()> onFence = [] {};
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

// A caller whose read has overtaken its write writes at the fence at last: it has taken the sleeper for awake, so the
// sleeper must not have looked yet.
TEST_F(DoorbellTest, WorkThatOnlyTheFenceBringsOutIsFoundByTheLastLook) {
  FencingProcess process;
  Doorbell fencing(&process);
  ASSERT_TRUE(fencing.mustWake());
  std::atomic<bool> hasWork{false};
  process.onFence = [&] { hasWork = true; };
  EXPECT_TRUE(returnsByItself(fencing, [&] { fencing.sleepUnless([&] { return hasWork.load(); }); }));
}

// And a caller who reads after the fence must find that the sleeper sleeps: the sleeper may have looked already.
TEST_F(DoorbellTest, ACallerAfterTheFenceIsToldToWake) {
  FencingProcess process;
  Doorbell fencing(&process);
  ASSERT_TRUE(fencing.mustWake());
  bool isToldToWake = false;
  process.onFence = [&] {
    isToldToWake = fencing.mustWake();
    fencing.wake();
  };
  EXPECT_TRUE(returnsByItself(fencing, [&] { fencing.sleepUnless([] { return false; }); }));
  EXPECT_TRUE(isToldToWake);
}
