#include "logging/DDLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <mutex>
#include <thread>

#include "logging/LogSite.h"
#include "platform/fake/FakePlatform.h"
#include "tests/logging/RecordingLogger.h"

using foundation::Dispatch::Semaphore;
using foundation::Dispatch::SerialQueue;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Point {
  int x;
};
std::ostream& operator<<(std::ostream& stream, const Point& point) { return stream << "(" << point.x << ")"; }

void log(bool asynchronous, std::string_view text) {
  DDLog::log_level_flag_context_file_function_line_format(asynchronous, 3, DDLogFlagWarning, 0, "Code/Test.mm", "test", 1,
                                                          "%@", text);
}

class Core : public testing::Test {
 protected:
  std::shared_ptr<RecordingLogger> added(const std::string& name = "recording") {
    auto logger = std::make_shared<RecordingLogger>(name);
    DDLog::addLogger(logger);
    return logger;
  }

  platform::fake::FakePlatform fake;
};

// With one processor, nothing runs beside anything else.
class CoreOnOneProcessor : public Core {
 protected:
  CoreOnOneProcessor() { fake.logging.process.processors = 1; }
};

}  // namespace

TEST_F(Core, ASynchronousStatementHasReachedEveryLoggerWhenItReturns) {
  const auto one = added();
  const auto other = added();
  log(false, "now");
  EXPECT_THAT(one->texts(), ElementsAre("now"));
  EXPECT_THAT(other->texts(), ElementsAre("now"));
}

TEST_F(Core, AnAsynchronousStatementArrives) {
  const auto logger = added();
  log(true, "later");
  EXPECT_TRUE(logger->waitForCount(1));
}

TEST_F(Core, RecordsOfOneThreadArriveInOrder) {
  const auto logger = added();
  std::vector<std::string> expected;
  for (int i = 0; i < 5000; ++i) {
    expected.push_back(std::to_string(i));
    log(i % 7 != 0, expected.back());
  }
  DDLog::flushLog();
  EXPECT_EQ(logger->texts(), expected);
}

TEST_F(Core, WithoutALoggerRecordsComeAndGoForEver) {
  for (int i = 0; i < 3000; ++i) log(true, "nobody listens");
  log(false, "nobody listens");
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
  log(true, "held up");
  ASSERT_TRUE(gate.waitForArrival());
  for (int i = 1; i < 1000; ++i) log(true, "waiting");
  std::atomic<bool> hasReturned{false};
  std::thread caller([&] {
    log(true, "one too many");
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
  for (int i = 0; i < 1000; ++i) log(true, "waiting");
  const auto late = added("late");
  gate.open();
  log(false, "last");
  EXPECT_THAT(late->texts(), ElementsAre("last"));
}

TEST_F(Core, ALoggerGetsTheRecordsBetweenItsAdditionAndItsRemoval) {
  log(true, "before");
  const auto logger = added();
  log(true, "between");
  DDLog::removeLogger(logger);
  log(true, "after");
  DDLog::flushLog();
  EXPECT_THAT(logger->texts(), ElementsAre("between"));
}

TEST_F(Core, RemovingALoggerThatWasNeverAddedChangesNothing) {
  const auto logger = added();
  const auto stranger = std::make_shared<RecordingLogger>();
  DDLog::removeLogger(stranger);
  log(false, "still here");
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
  log(false, "once");
  EXPECT_THAT(twice->texts(), ElementsAre("once"));
  EXPECT_THAT(order, ElementsAre("other", "twice"));
}

TEST_F(Core, RemovingAllTellsEveryLoggerAndLeavesNone) {
  const auto one = added();
  const auto other = added();
  DDLog::removeAllLoggers();
  log(false, "gone");
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

TEST_F(Core, LoggersRunOnTheirOwnQueuesUnderTheirOwnNames) {
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
  log(false, "where");
  EXPECT_THAT(labels, testing::UnorderedElementsAre("queue.one", "queue.two"));
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
  log(false, "where");
  EXPECT_EQ(named->label, "bare.logger");
  EXPECT_EQ(nameless->label, "none");
}

TEST_F(Core, NoLoggerGetsTheNextRecordBeforeAllHaveHadThisOne) {
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
  for (int i = 0; i < 3000; ++i) log(true, "step");
  DDLog::flushLog();
  EXPECT_LE(worst, 1);
}

TEST_F(Core, LoggersThatWaitForEachOtherFinish) {
  Semaphore met(0);
  auto waiting = std::make_shared<RecordingLogger>("waiting");
  auto meeting = std::make_shared<RecordingLogger>("meeting");
  bool wasInTime = false;
  waiting->onMessage = [&](const DDLogMessage&) { wasInTime = met.try_acquire_for(std::chrono::seconds(20)); };
  meeting->onMessage = [&](const DDLogMessage&) { met.release(); };
  DDLog::addLogger(waiting);
  DDLog::addLogger(meeting);
  log(false, "meet");
  EXPECT_TRUE(wasInTime);
  EXPECT_THAT(waiting->texts(), ElementsAre("meet"));
  EXPECT_THAT(meeting->texts(), ElementsAre("meet"));
}

// After each record the onlooker may be awake, about to sleep or asleep.
TEST_F(Core, LoggersThatWaitForEachOtherFinishWheneverTheOnlookerWasLastNeeded) {
  Semaphore met(0);
  std::atomic<int> missed{0};
  auto waiting = std::make_shared<RecordingLogger>("waiting");
  auto meeting = std::make_shared<RecordingLogger>("meeting");
  waiting->onMessage = [&](const DDLogMessage&) { missed += met.try_acquire_for(std::chrono::seconds(10)) ? 0 : 1; };
  meeting->onMessage = [&](const DDLogMessage&) { met.release(); };
  DDLog::addLogger(waiting);
  DDLog::addLogger(meeting);
  for (int round = 0; round < 200 && missed == 0; ++round) {
    log(round % 2 == 0, "meet");
    const auto pause = std::chrono::steady_clock::now() + std::chrono::microseconds(round * 20);
    while (std::chrono::steady_clock::now() < pause) std::this_thread::yield();
  }
  DDLog::flushLog();
  EXPECT_EQ(missed, 0);
}

TEST_F(CoreOnOneProcessor, LoggersRunStrictlyOneAfterTheOther) {
  expectOneAfterTheOther([] { log(true, "in turn"); });
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
    if (message.logMsg() == "cause") log(true, "effect");
  };
  DDLog::addLogger(logger);
  log(false, "cause");
  DDLog::flushLog();
  EXPECT_THAT(logger->texts(), ElementsAre("cause", "effect"));
}

TEST_F(Core, ARecordHasAllThatTheStatementSaid) {
  const auto logger = added();
  const auto queue = SerialQueue::make("some.queue");
  queue->sync([] {
    DDLog::log_level_flag_context_file_function_line_format(false, 7, 4, -9, "/Code/Thing.mm", "do:it:", 321, "%d of %@", 2,
                                                            "x");
  });
  const auto record = logger->records().at(0);
  EXPECT_EQ(record.logLevel(), 7);
  EXPECT_EQ(record.logFlag(), 4);
  EXPECT_EQ(record.logContext(), -9);
  EXPECT_EQ(record.logMsg(), "2 of x");
  EXPECT_EQ(record.timestamp(), fake.clock.now());
  EXPECT_STREQ(record.file(), "/Code/Thing.mm");
  EXPECT_STREQ(record.function(), "do:it:");
  EXPECT_EQ(record.lineNumber(), 321);
  EXPECT_EQ(record.machThreadID(), fake.logging.process.currentThreadIdentifier());
  EXPECT_EQ(record.queueLabel(), "some.queue");
  EXPECT_EQ(record.fileName(), "Thing");
  EXPECT_EQ(record.methodName(), "do:it:");
  EXPECT_EQ(record.threadID(), foundation::formatted("%x", record.machThreadID()));
}

TEST_F(Core, ARecordFromTheMainThreadHasTheMainThreadsLabel) {
  const auto logger = added();
  log(false, "main");
  EXPECT_EQ(logger->records().at(0).queueLabel(), "com.apple.main-thread");
}

TEST_F(Core, ARecordFromAThreadWithoutAQueueHasNoLabel) {
  const auto logger = added();
  std::thread([] { log(false, "thread"); }).join();
  EXPECT_EQ(logger->records().at(0).queueLabel(), std::nullopt);
}

TEST_F(Core, LongTextsWithZerosArriveWhole) {
  const auto logger = added();
  std::string text(1 << 20, 'x');
  text[500] = '\0';
  log(true, text);
  log(false, "end");
  EXPECT_THAT(logger->texts(), ElementsAre(text, "end"));
}

TEST_F(Core, TheMemoryOfALongTextIsGivenBackByTheNextRecord) {
  class Framing : public DDLogFormatter {
    std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) override {
      return buffer.assign("<").append(message.logMsg()).append(">");
    }
  };
  class Formatting : public DDAbstractLogger {
   public:
    Formatting() : DDAbstractLogger("formatting") { formatter = std::make_shared<Framing>(); }
    void logMessage(const DDLogMessage& message) override { size = textOf(message)->size(); }
    std::size_t size = 0;
  };
  const auto logger = std::make_shared<Formatting>();
  DDLog::addLogger(logger);
  const auto allocated = [] { return ::mallinfo2().uordblks + ::mallinfo2().hblkhd; };
  constexpr std::size_t length = 8 << 20;
  log(false, "before");
  const std::size_t before = allocated();
  log(false, std::string(length, 'x'));
  EXPECT_EQ(logger->size, length + 2);
  log(false, "after");
  EXPECT_LT(allocated(), before + length / 8);
}

TEST_F(Core, AReadyRecordIsQueuedAsItIs) {
  const auto logger = added();
  const DDLogMessage message("ready", 1, 1, 5, "a.c", nullptr, 7);
  DDLog::queueLogMessage_asynchronously(message, false);
  EXPECT_THAT(logger->texts(), ElementsAre("ready"));
  EXPECT_EQ(logger->records().at(0).methodName(), std::nullopt);
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
    log(true, "meanwhile");
    logger->setLogFormatter(formatter);
    ASSERT_EQ(logger->logFormatter(), formatter);
  }
}

TEST(FileName, IsThePathWithoutFoldersAndExtension) {
  platform::fake::FakePlatform fake;
  const auto name = [](const char* path) { return std::string(DDLogMessage("", 0, 0, 0, path, nullptr, 0).fileName()); };
  EXPECT_EQ(name("bare"), "bare");
  EXPECT_EQ(name("a/b/c"), "c");
  EXPECT_EQ(name("x.y"), "x");
  EXPECT_EQ(name("Code/Thing.mm"), "Thing");
  EXPECT_EQ(name("a.b/c"), "c");
  EXPECT_EQ(name(""), "");
  EXPECT_EQ(name("a/"), "");
  EXPECT_EQ(name("a/b.c.d"), "b.c");
}

TEST(DDLogWithoutAPlatform, DoesNothing) {
  log(false, "nobody");
  DDLog::flushLog();
  DDLog::addLogger(nullptr);
  DDLog::removeAllLoggers();
  bool hasRun = false;
  DDLog::loggingQueue().sync([&] { hasRun = true; });
  EXPECT_TRUE(hasRun);
}

// Class levels.

namespace {

std::int32_t levelOfVerbose = 3;
std::int32_t verboseLevel() { return levelOfVerbose; }
void setVerboseLevel(std::int32_t level) { levelOfVerbose = level; }

foundation::Class* classWith(const std::string& name, const std::vector<foundation::Method>& operations) {
  auto* known = foundation::ClassRegistry::shared().classNamed(name);
  return known != nullptr ? known : foundation::ClassRegistry::shared().add(name, nullptr, {}, operations);
}

foundation::Class* verbose() {
  return classWith("TestVerbose", {{"ddLogLevel", &verboseLevel}, {"ddSetLogLevel:", &setVerboseLevel}});
}

}  // namespace

TEST(ClassLevels, AreReadAndSetThroughTheClass) {
  DDLog::setLogLevel_forClass(5, verbose());
  EXPECT_EQ(DDLog::logLevelForClass(verbose()), 5);
  DDLog::setLogLevel_forClassWithName(1, "TestVerbose");
  EXPECT_EQ(DDLog::logLevelForClassWithName("TestVerbose"), 1);
}

TEST(ClassLevels, AClassThatLacksOneOperationAnswersMinusOneAndTakesNothing) {
  levelOfVerbose = 3;
  auto* getterOnly = classWith("TestGetterOnly", {{"ddLogLevel", &verboseLevel}});
  auto* setterOnly = classWith("TestSetterOnly", {{"ddSetLogLevel:", &setVerboseLevel}});
  for (auto* one : {getterOnly, setterOnly}) {
    EXPECT_FALSE(DDLog::isRegisteredClass(one));
    EXPECT_EQ(DDLog::logLevelForClass(one), -1);
    DDLog::setLogLevel_forClass(9, one);
  }
  EXPECT_EQ(levelOfVerbose, 3);
}

TEST(ClassLevels, AnUnknownNameAnswersMinusOne) {
  EXPECT_EQ(DDLog::logLevelForClassWithName("NoSuchClass"), -1);
  DDLog::setLogLevel_forClassWithName(1, "NoSuchClass");
}

TEST(ClassLevels, RegisteredClassesAreThoseWithBothOperations) {
  verbose();
  classWith("TestGetterOnly", {{"ddLogLevel", &verboseLevel}});
  const auto names = DDLog::registeredClassNames();
  EXPECT_THAT(names, testing::Contains("TestVerbose"));
  EXPECT_THAT(names, testing::Not(testing::Contains("TestGetterOnly")));
  EXPECT_EQ(names.size(), DDLog::registeredClasses().size());
}

// Calling sites.

TEST_F(Core, ASiteLogsWhatItsLevelLetsThroughWithItsPlace) {
  const auto logger = added();
  const DDLogSite site(DDLogFlagError | DDLogFlagWarning, 12);
  site.info("%d", 1);
  site.warning("w%d", 2);
  const int line = __LINE__ + 1;
  site.error("e%d", 3);
  EXPECT_THAT(logger->texts(), ElementsAre("w2", "e3"));
  const auto record = logger->records().at(1);
  EXPECT_EQ(record.fileName(), "DDLog_test");
  EXPECT_EQ(record.lineNumber(), line);
  EXPECT_EQ(record.logFlag(), DDLogFlagError);
  EXPECT_EQ(record.logLevel(), 3);
  EXPECT_EQ(record.logContext(), 12);
}

TEST_F(Core, AnythingThatPrintsItselfIsAnArgument) {
  const auto logger = added();
  const DDLogSite site(7);
  site.error("%@ %@ %@ %@", Point{4}, std::string("text"), 5, static_cast<const char*>(nullptr));
  EXPECT_THAT(logger->texts(), ElementsAre("(4) text 5 (null)"));
}

TEST_F(Core, AFormatMadeAtRunTimeShowsWhatDoesNotFit) {
  const auto logger = added();
  const DDLogSite site(7);
  const std::string format = "%d %s %@ %";
  site.error(format, "text", 5);
  EXPECT_THAT(logger->texts(), ElementsAre("text 5 (null) %"));
}
