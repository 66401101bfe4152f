#include "logging/DDLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/logging/LogTest.h"

using namespace tests;
using foundation::Dispatch::Semaphore;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Core : public LogTest {};

TEST_F(Core, ASynchronousStatementHasReachedEveryLoggerWhenItReturns) {
  const auto one = added();
  const auto other = added();
  logText(false, "now");
  EXPECT_THAT(one->texts(), ElementsAre("now"));
  EXPECT_THAT(other->texts(), ElementsAre("now"));
}

TEST_F(Core, AnAsynchronousStatementArrives) {
  const auto logger = added();
  logText(true, "later");
  EXPECT_TRUE(logger->waitForCount(1));
}

TEST_F(Core, RecordsOfOneThreadArriveInOrder) {
  const auto logger = added();
  std::vector<std::string> expected;
  for (int i = 0; i < 5000; ++i) {
    expected.push_back(std::to_string(i));
    logText(i % 7 != 0, expected.back());
  }
  DDLog::flushLog();
  EXPECT_EQ(logger->texts(), expected);
}

TEST_F(Core, WithoutALoggerRecordsComeAndGoForEver) {
  for (int i = 0; i < 3000; ++i) logText(true, "nobody listens");
  logText(false, "nobody listens");
}

TEST_F(Core, AFormatOfNothingDoesNothingAtAll) {
  const auto logger = added();
  DDLog::log_level_flag_context_file_function_line_format(false, 3, 1, 0, "f.mm", "f", 1, nullptr);
  DDLog::log_level_flag_context_file_function_line_format(false, 3, 1, 0, "f.mm", "f", 1,
                                                          static_cast<const char*>(nullptr));
  DDLog::flushLog();
  EXPECT_THAT(logger->texts(), IsEmpty());
}

TEST_F(Core, TheThousandAndFirstWaitingRecordBlocksItsCallerUntilOneIsDelivered) {
  Gate gate;
  Semaphore deliveries(0);
  auto logger = std::make_shared<RecordingLogger>();
  logger->onMessage = [&](const DDLogMessage&) {
    gate.pass();
    deliveries.acquire();
  };
  DDLog::addLogger(logger);
  logText(true, "held up");
  ASSERT_TRUE(gate.waitForArrival());
  for (int i = 1; i < 1000; ++i) logText(true, "waiting");
  std::atomic<bool> hasReturned{false};
  std::thread caller([&] {
    logText(true, "one too many");
    hasReturned = true;
  });
  // Nothing to wait for: it must not return, however long one looks.
  for (int i = 0; i < 50; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ASSERT_FALSE(hasReturned);
  }
  gate.open();
  deliveries.release();
  caller.join();
  EXPECT_EQ(logger->count(), 1);
  deliveries.release(2000);
  DDLog::flushLog();
  EXPECT_EQ(logger->count(), 1001);
}

TEST_F(Core, ABlockOnTheLoggingQueueDoesNotWaitForRoom) {
  Gate gate;
  auto logger = std::make_shared<RecordingLogger>();
  logger->onMessage = [&](const DDLogMessage&) { gate.pass(); };
  DDLog::addLogger(logger);
  for (int i = 0; i < 1000; ++i) logText(true, "waiting");
  const auto late = added("late");
  gate.open();
  logText(false, "last");
  EXPECT_THAT(late->texts(), ElementsAre("last"));
}

TEST_F(Core, ALoggerGetsTheRecordsBetweenItsAdditionAndItsRemoval) {
  logText(true, "before");
  const auto logger = added();
  logText(true, "between");
  DDLog::removeLogger(logger);
  logText(true, "after");
  DDLog::flushLog();
  EXPECT_THAT(logger->texts(), ElementsAre("between"));
}

TEST_F(Core, RemovingALoggerThatWasNeverAddedChangesNothing) {
  const auto logger = added();
  const auto stranger = std::make_shared<RecordingLogger>();
  DDLog::removeLogger(stranger);
  logText(false, "still here");
  EXPECT_THAT(logger->texts(), ElementsAre("still here"));
  EXPECT_THAT(stranger->notes(), IsEmpty());
}

TEST_F(Core, RemovingALoggerThatWasAddedTwiceRemovesItsFirstEntryOnly) {
  const auto twice = std::make_shared<RecordingLogger>();
  std::vector<std::string> order;
  const auto other = std::make_shared<RecordingLogger>();
  twice->onMessage = [&](const DDLogMessage&) { order.emplace_back("twice"); };
  other->onMessage = [&](const DDLogMessage&) { order.emplace_back("other"); };
  for (const auto& logger : {twice, other, twice}) DDLog::addLogger(logger);
  DDLog::removeLogger(twice);
  logText(false, "once");
  EXPECT_THAT(twice->texts(), ElementsAre("once"));
  EXPECT_THAT(order, ElementsAre("other", "twice"));
}

TEST_F(Core, RemovingAllTellsEveryLoggerAndLeavesNone) {
  const auto one = added();
  const auto other = added();
  DDLog::removeAllLoggers();
  logText(false, "gone");
  one->loggerQueue()->sync([] {});
  other->loggerQueue()->sync([] {});
  EXPECT_THAT(one->texts(), IsEmpty());
  EXPECT_THAT(one->notes(), ElementsAre("added", "removed"));
  EXPECT_THAT(other->notes(), ElementsAre("added", "removed"));
}

TEST_F(Core, FlushingReturnsWhenEveryLoggerHasFlushed) {
  const auto one = added();
  const auto other = added();
  DDLog::flushLog();
  EXPECT_THAT(one->notes(), ElementsAre("added", "flushed"));
  EXPECT_THAT(other->notes(), ElementsAre("added", "flushed"));
}

TEST_F(Core, TheApplicationsEndFlushes) {
  const auto logger = added();
  fake.platform.defaultNotificationCenter.post({std::string(foundation::applicationWillTerminateNotification), {}, {}});
  EXPECT_THAT(logger->notes(), ElementsAre("added", "flushed"));
}

TEST_F(Core, ALoggerWithoutAQueueGetsOneWithItsName) {
  class Bare : public DDLogger {
   public:
    explicit Bare(std::optional<std::string> name) : _name(std::move(name)) {}
    void logMessage(const DDLogMessage&) override {
      const auto current = foundation::Dispatch::currentQueueLabel();
      label = current.data() == nullptr ? "none" : std::string(current);
    }
    std::shared_ptr<DDLogFormatter> logFormatter() override { return nullptr; }
    void setLogFormatter(std::shared_ptr<DDLogFormatter>) override {}
    std::optional<std::string> loggerName() const override { return _name; }
    std::string label;

   private:
    const std::optional<std::string> _name;
  };
  const auto named = std::make_shared<Bare>("bare.logger");
  const auto nameless = std::make_shared<Bare>(std::nullopt);
  DDLog::addLogger(named);
  DDLog::addLogger(nameless);
  logText(false, "where");
  EXPECT_EQ(named->label, "bare.logger");
  EXPECT_EQ(nameless->label, "none");
}

TEST_F(Core, TheQueueHasItsNameAndIsCurrentForWhatRunsOnIt) {
  bool isCurrent = false;
  DDLog::loggingQueue().sync([&] { isCurrent = DDLog::loggingQueue().isCurrent(); });
  EXPECT_TRUE(isCurrent);
  EXPECT_FALSE(DDLog::loggingQueue().isCurrent());
  EXPECT_EQ(DDLog::loggingQueue().label(), "cocoa.plamaiskre");
}

TEST_F(Core, ALoggerMayLogWithoutWaiting) {
  auto logger = std::make_shared<RecordingLogger>();
  logger->onMessage = [&](const DDLogMessage& message) {
    if (message.logMsg() == "cause") logText(true, "effect");
  };
  DDLog::addLogger(logger);
  logText(false, "cause");
  DDLog::flushLog();
  EXPECT_THAT(logger->texts(), ElementsAre("cause", "effect"));
}

TEST_F(Core, AFormatterIsReadBackAsItWasSet) {
  class Plain : public DDLogFormatter {
   public:
    std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string&) override {
      return message.logMsg();
    }
  };
  const auto logger = added();
  for (int i = 0; i < 100; ++i) {
    const auto formatter = std::make_shared<Plain>();
    logText(true, "meanwhile");
    logger->setLogFormatter(formatter);
    ASSERT_EQ(logger->logFormatter(), formatter);
  }
}

TEST(DDLogWithoutAPlatform, DoesNothing) {
  logText(false, "nobody");
  DDLog::flushLog();
  DDLog::addLogger(nullptr);
  DDLog::removeAllLoggers();
  bool hasRun = false;
  DDLog::loggingQueue().sync([&] { hasRun = true; });
  EXPECT_TRUE(hasRun);
}

}  // namespace
