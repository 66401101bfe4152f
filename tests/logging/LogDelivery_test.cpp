#include "logging/LogDelivery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "tests/logging/LogTest.h"

using namespace tests;
using foundation::Dispatch::Semaphore;
using testing::ElementsAre;

namespace {

class LogDeliveryTest : public LogTest {};

// With one processor, nothing runs beside anything else.
class LogDeliveryOnOneProcessor : public LogTest {
 protected:
  LogDeliveryOnOneProcessor() { fake.logging.process.processors = 1; }
};

TEST_F(LogDeliveryTest, LoggersRunOnTheirOwnQueuesUnderTheirOwnNames) {
  auto one = std::make_shared<RecordingLogger>("queue.one");
  auto other = std::make_shared<RecordingLogger>("queue.two");
  // Loggers may work at the same time.
  std::mutex lock;
  std::vector<std::string> labels;
  const auto note = [&](const DDLogMessage&) {
    const std::lock_guard guard(lock);
    labels.emplace_back(foundation::Dispatch::currentQueueLabel());
  };
  one->onMessage = other->onMessage = note;
  DDLog::addLogger(one);
  DDLog::addLogger(other);
  logText(false, "where");
  EXPECT_THAT(labels, testing::UnorderedElementsAre("queue.one", "queue.two"));
}

TEST_F(LogDeliveryTest, NoLoggerGetsTheNextRecordBeforeAllHaveHadThisOne) {
  auto one = std::make_shared<RecordingLogger>("one");
  auto other = std::make_shared<RecordingLogger>("other");
  std::atomic<std::size_t> worst{0};
  const auto compare = [&](const DDLogMessage&) {
    const std::size_t a = one->count();
    const std::size_t b = other->count();
    worst = std::max(worst.load(), a > b ? a - b : b - a);
  };
  one->onMessage = other->onMessage = compare;
  DDLog::addLogger(one);
  DDLog::addLogger(other);
  for (int i = 0; i < 3000; ++i) logText(true, "step");
  DDLog::flushLog();
  EXPECT_LE(worst, 1);
}

TEST_F(LogDeliveryTest, LoggersThatWaitForEachOtherFinish) {
  Semaphore met(0);
  auto waiting = std::make_shared<RecordingLogger>("waiting");
  auto meeting = std::make_shared<RecordingLogger>("meeting");
  bool wasInTime = false;
  waiting->onMessage = [&](const DDLogMessage&) { wasInTime = met.try_acquire_for(std::chrono::seconds(20)); };
  meeting->onMessage = [&](const DDLogMessage&) { met.release(); };
  DDLog::addLogger(waiting);
  DDLog::addLogger(meeting);
  logText(false, "meet");
  EXPECT_TRUE(wasInTime);
  EXPECT_THAT(waiting->texts(), ElementsAre("meet"));
  EXPECT_THAT(meeting->texts(), ElementsAre("meet"));
}

// After each record the onlooker may be awake, about to sleep or asleep.

TEST_F(LogDeliveryTest, LoggersThatWaitForEachOtherFinishWheneverTheOnlookerWasLastNeeded) {
  Semaphore met(0);
  std::atomic<int> missed{0};
  auto waiting = std::make_shared<RecordingLogger>("waiting");
  auto meeting = std::make_shared<RecordingLogger>("meeting");
  waiting->onMessage = [&](const DDLogMessage&) { missed += met.try_acquire_for(std::chrono::seconds(10)) ? 0 : 1; };
  meeting->onMessage = [&](const DDLogMessage&) { met.release(); };
  DDLog::addLogger(waiting);
  DDLog::addLogger(meeting);
  for (int round = 0; round < 200 && missed == 0; ++round) {
    logText(round % 2 == 0, "meet");
    const auto pause = std::chrono::steady_clock::now() + std::chrono::microseconds(round * 20);
    while (std::chrono::steady_clock::now() < pause) std::this_thread::yield();
  }
  DDLog::flushLog();
  EXPECT_EQ(missed, 0);
}

TEST_F(LogDeliveryOnOneProcessor, LoggersRunStrictlyOneAfterTheOther) {
  expectOneAfterTheOther([] { logText(true, "in turn"); });
}

}  // namespace
