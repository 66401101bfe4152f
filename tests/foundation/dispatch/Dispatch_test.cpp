#include "foundation/dispatch/Dispatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <thread>

#include "platform/fake/FakeLogging.h"

using namespace foundation::Dispatch;
using foundation::Seconds;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(SerialQueue, RunsBlocksOneAtATimeInOrder) {
  const auto queue = SerialQueue::make("q");
  std::vector<int> order;
  std::atomic<int> running{0};
  std::atomic<bool> hasOverlapped{false};
  for (int i = 0; i < 500; ++i)
    queue->async([&, i] {
      if (++running > 1) hasOverlapped = true;
      order.push_back(i);
      --running;
    });
  queue->sync([&] { order.push_back(500); });
  EXPECT_FALSE(hasOverlapped);
  ASSERT_EQ(order.size(), 501);
  EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(SerialQueue, SynchronousBlocksOfManyThreadsNeverOverlap) {
  const auto queue = SerialQueue::make("q");
  int count = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 6; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        if (i % 3 == 0)
          queue->async([&] { ++count; });
        else
          queue->sync([&] { ++count; });
      }
    });
  for (auto& thread : threads) thread.join();
  queue->sync([] {});
  EXPECT_EQ(count, 12000);
}

TEST(SerialQueue, IsCurrentWhileItsBlockRunsAndItsLabelIsTheCurrentOne) {
  const auto outer = SerialQueue::make("outer");
  const auto inner = SerialQueue::make("inner");
  EXPECT_EQ(currentQueueLabel(), mainThreadLabel);
  outer->sync([&] {
    EXPECT_TRUE(outer->isCurrent());
    EXPECT_EQ(currentQueueLabel(), "outer");
    inner->sync([&] {
      EXPECT_FALSE(outer->isCurrent());
      EXPECT_EQ(currentQueueLabel(), "inner");
    });
    EXPECT_EQ(currentQueueLabel(), "outer");
  });
  EXPECT_FALSE(outer->isCurrent());
}

TEST(SerialQueue, WithoutALabelThereIsNone) {
  SerialQueue::make(std::nullopt)->sync([] { EXPECT_EQ(currentQueueLabel().data(), nullptr); });
  std::thread([] { EXPECT_EQ(currentQueueLabel().data(), nullptr); }).join();
}

TEST(SerialQueue, BlocksOfDifferentQueuesMayWaitForEachOther) {
  Semaphore there(0);
  Semaphore back(0);
  const auto one = SerialQueue::make("one");
  const auto other = SerialQueue::make("other");
  one->async([&] {
    there.release();
    EXPECT_TRUE(back.try_acquire_for(std::chrono::seconds(20)));
  });
  other->async([&] {
    EXPECT_TRUE(there.try_acquire_for(std::chrono::seconds(20)));
    back.release();
  });
  one->sync([] {});
  other->sync([] {});
}

TEST(Group, IsWaitedForUntilEveryMemberHasRunAndCanBeUsedAgain) {
  Group group;
  std::atomic<int> count{0};
  const auto one = SerialQueue::make("one");
  const auto other = SerialQueue::make("other");
  for (int round = 1; round <= 3; ++round) {
    for (int i = 0; i < 10; ++i) (i % 2 == 0 ? one : other)->async(group, [&] { ++count; });
    group.wait();
    EXPECT_EQ(count, 10 * round);
  }
}

namespace {

class Timers : public testing::Test {
 protected:
  std::shared_ptr<TimerSource> timer() {
    return TimerSource::make(queue, [this] { fired.push_back(clock.uptime() - start); });
  }
  void pass(double seconds) {
    clock.advance(Seconds(seconds));
    queue->sync([] {});
  }

  platform::fake::FakeClock clock;
  const foundation::Uptime start = clock.uptime();
  std::shared_ptr<SerialQueue> queue = SerialQueue::make("timers");
  std::vector<std::chrono::nanoseconds> fired;
};

}  // namespace

TEST_F(Timers, AreMadeSuspended) {
  const auto one = timer();
  one->set(start + std::chrono::seconds(1), Seconds(0));
  pass(5);
  EXPECT_THAT(fired, IsEmpty());
}

TEST_F(Timers, FireOnceOrRepeatedly) {
  const auto once = timer();
  once->set(start + std::chrono::seconds(1), Seconds(0));
  once->resume();
  pass(1);
  pass(10);
  EXPECT_EQ(fired.size(), 1);
  const auto often = timer();
  often->set(start + std::chrono::seconds(20), Seconds(5));
  often->resume();
  fired.clear();
  for (const std::size_t count : {0, 1, 2, 3}) {
    pass(5);
    EXPECT_EQ(fired.size(), count);
  }
}

TEST_F(Timers, AFiringThatFellDueWhileSuspendedHappensAtTheNextResume) {
  const auto one = timer();
  one->set(start + std::chrono::seconds(1), Seconds(0));
  one->resume();
  one->suspend();
  pass(5);
  EXPECT_THAT(fired, IsEmpty());
  one->resume();
  pass(0);
  EXPECT_THAT(fired, ElementsAre(std::chrono::seconds(5)));
}

TEST_F(Timers, ACancelledTimerNeverFiresEvenWhenItsBlockWaits) {
  const auto one = timer();
  one->set(start, Seconds(1));
  one->resume();
  queue->sync([&] {
    clock.advance(Seconds(0));
    one->cancel();
  });
  pass(10);
  EXPECT_THAT(fired, IsEmpty());
}

TEST_F(Timers, PeriodsThatWereMissedAreNotMadeUpFor) {
  const auto one = timer();
  one->set(start - std::chrono::milliseconds(9500), Seconds(1));
  one->resume();
  pass(0);
  EXPECT_EQ(fired.size(), 1);
  pass(0.4);
  EXPECT_EQ(fired.size(), 1);
  pass(0.1);
  EXPECT_EQ(fired.size(), 2);
}

TEST_F(Timers, ANewSettingReplacesTheOld) {
  const auto one = timer();
  one->set(start + std::chrono::seconds(1), Seconds(0));
  one->resume();
  one->set(start + std::chrono::seconds(3), Seconds(0));
  pass(2);
  EXPECT_THAT(fired, IsEmpty());
  pass(1);
  EXPECT_THAT(fired, ElementsAre(std::chrono::seconds(3)));
}

namespace {

// Has no memory for the next blocks.
class ShortQueue final : public Queue {
 public:
  ShortQueue() : Queue("short") {}
  void async(Block block) override {
    if (failures-- > 0) throw std::bad_alloc();
    _queue->async(std::move(block));
  }
  void sync(const Block& block) override { _queue->sync(block); }

  int failures = 0;

 private:
  const std::shared_ptr<SerialQueue> _queue = SerialQueue::make("behind");
};

class TimersWithoutMemory : public testing::Test {
 protected:
  void passSecond() {
    clock.advance(Seconds(1));
    queue->sync([] {});
  }
  // How often the timer fires in each second.
  std::vector<int> firingsOfSeconds(int seconds) {
    std::vector<int> counts;
    for (int i = 0; i < seconds; ++i) {
      fired = 0;
      passSecond();
      counts.push_back(fired);
    }
    return counts;
  }

  platform::fake::FakeClock clock;
  std::shared_ptr<ShortQueue> queue = std::make_shared<ShortQueue>();
  int fired = 0;
  std::shared_ptr<TimerSource> timer = TimerSource::make(queue, [this] { ++fired; });
};

}  // namespace

TEST_F(TimersWithoutMemory, ForTheirBlockFireOnceSoonAfterwards) {
  timer->set(clock.uptime() + std::chrono::milliseconds(500), Seconds(0));
  timer->resume();
  queue->failures = 3;
  EXPECT_THAT(firingsOfSeconds(2), ElementsAre(1, 0));
}

TEST_F(TimersWithoutMemory, ForTheirBlockFireRepeatedlyAllTheSame) {
  timer->set(clock.uptime() + std::chrono::milliseconds(500), Seconds(1));
  timer->resume();
  queue->failures = 3;
  EXPECT_THAT(firingsOfSeconds(3), ElementsAre(1, 1, 1));
}

TEST_F(TimersWithoutMemory, ForTheirNextCallFireRepeatedlyAllTheSame) {
  timer->set(clock.uptime() + std::chrono::milliseconds(500), Seconds(1));
  timer->resume();
  clock.callsWithoutMemory = 3;
  EXPECT_THAT(firingsOfSeconds(3), ElementsAre(1, 1, 1));
}

TEST_F(TimersWithoutMemory, AreNeitherFiredNorCalledOnceTheyAreCancelled) {
  timer->set(clock.uptime() + std::chrono::milliseconds(500), Seconds(1));
  timer->resume();
  queue->failures = 1000;
  passSecond();
  timer->cancel();
  EXPECT_EQ(clock.pendingCount(), 0);
}

TEST_F(TimersWithoutMemory, CanBeResumedAgain) {
  timer->set(clock.uptime() + std::chrono::milliseconds(500), Seconds(0));
  clock.callsWithoutMemory = 1;
  EXPECT_THROW(timer->resume(), std::bad_alloc);
  timer->resume();
  EXPECT_THAT(firingsOfSeconds(1), ElementsAre(1));
}

TEST(RealTimers, FireOnTheirQueue) {
  Semaphore fired(0);
  const auto queue = SerialQueue::make("real");
  const auto timer = TimerSource::make(queue, [&] {
    if (queue->isCurrent()) fired.release();
  });
  timer->set(foundation::Clock::current().uptime() + std::chrono::milliseconds(5), Seconds(0.005));
  timer->resume();
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(fired.try_acquire_for(std::chrono::seconds(20)));
  queue->sync([&] { timer->cancel(); });
}
