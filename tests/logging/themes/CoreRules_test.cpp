// The small print of the core: where things run, and what takes effect when.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "logging/DDLog.h"
#include "platform/fake/FakePlatform.h"
#include "tests/logging/RecordingLogger.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"

using namespace tests;
using foundation::Dispatch::Semaphore;
using testing::ElementsAre;

namespace {

void log(bool asynchronous, std::string_view text) {
  DDLog::log_level_flag_context_file_function_line_format(asynchronous, 3, DDLogFlagWarning, 0, "f.mm", "f", 1, "%@", text);
}

std::string here() {
  const auto label = foundation::Dispatch::currentQueueLabel();
  return label.data() == nullptr ? "nowhere" : std::string(label);
}

// Notes on which queue each of its operations runs.
class PlaceNoting : public DDAbstractLogger {
 public:
  explicit PlaceNoting(const std::string& name) : DDAbstractLogger(name) {}
  void logMessage(const DDLogMessage&) override { note("message"); }
  void didAddLogger() override { note("added"); }
  void willRemoveLogger() override { note("removed"); }
  void flush() override { note("flushed"); }
  std::vector<std::string> notes() {
    std::vector<std::string> taken;
    loggerQueue()->sync([&] { taken = _notes; });
    return taken;
  }

 private:
  void note(const std::string& what) { _notes.push_back(what + " on " + here()); }
  std::vector<std::string> _notes;
};

class Naming : public DDLogFormatter {
 public:
  explicit Naming(std::string name) : _name(std::move(name)) {}
  std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) override {
    return buffer.assign(_name).append(" ").append(message.logMsg());
  }

 private:
  const std::string _name;
};

// Keeps what its formatter makes.
class Formatting : public DDAbstractLogger {
 public:
  Formatting() : DDAbstractLogger("formatting") {}
  void logMessage(const DDLogMessage& message) override {
    if (onMessage) onMessage();
    lines.emplace_back(textOf(message).value_or("nothing"));
  }
  // Without waiting for anything.
  [[nodiscard]] std::shared_ptr<DDLogFormatter> currentFormatter() const { return formatter; }
  std::function<void()> onMessage;
  std::vector<std::string> lines;
};

// How often the other threads of the process went to sleep so far.
std::map<std::string, std::string> sleepsOfOtherThreads() {
  std::map<std::string, std::string> sleeps;
  const std::string own = std::to_string(::gettid());
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (task.path().filename() == own) continue;
    const std::string status = tests::readFile(task.path() / "status");
    const auto place = status.find("voluntary_ctxt_switches:");
    sleeps[task.path().filename()] = status.substr(place, status.find('\n', place) - place);
  }
  return sleeps;
}

// Whether no other thread woke up for half a second, which is a thousand looks of the onlooker and fifty of the watch.
bool everyOtherThreadSleeps() {
  const auto before = sleepsOfOtherThreads();
  return !tests::eventually([&] { return sleepsOfOtherThreads() != before; }, std::chrono::milliseconds(500));
}

class CoreRules : public testing::Test {
 protected:
  platform::fake::FakePlatform fake;
};

class CoreRulesOnOneProcessor : public CoreRules {
 protected:
  CoreRulesOnOneProcessor() { fake.logging.process.processors = 1; }
};

}  // namespace

TEST_F(CoreRules, EverythingThatALoggerIsAskedRunsOnItsQueue) {
  const auto logger = std::make_shared<PlaceNoting>("own.queue");
  DDLog::addLogger(logger);
  log(false, "one");
  log(true, "two");
  DDLog::flushLog();
  DDLog::removeLogger(logger);
  DDLog::loggingQueue().sync([] {});
  EXPECT_THAT(logger->notes(), ElementsAre("added on own.queue", "message on own.queue", "message on own.queue",
                                           "flushed on own.queue", "removed on own.queue"));
}

TEST_F(CoreRules, ALoggerThatIsAddedTwiceGetsEveryRecordTwice) {
  const auto twice = std::make_shared<RecordingLogger>();
  DDLog::addLogger(twice);
  DDLog::addLogger(twice);
  log(false, "once");
  EXPECT_THAT(twice->texts(), ElementsAre("once", "once"));
  EXPECT_THAT(twice->notes(), ElementsAre("added", "added"));
}

TEST_F(CoreRules, InitializingAgainDoesNothing) {
  DDLog::initialize();
  DDLog::initialize();
  const auto logger = std::make_shared<RecordingLogger>();
  DDLog::addLogger(logger);
  fake.platform.defaultNotificationCenter.post({std::string(foundation::applicationWillTerminateNotification), {}, {}});
  EXPECT_THAT(logger->notes(), ElementsAre("added", "flushed"));
}

TEST_F(CoreRules, AFlushWaitsForTheRecordsBeforeIt) {
  const auto logger = std::make_shared<RecordingLogger>();
  DDLog::addLogger(logger);
  for (int i = 0; i < 500; ++i) log(true, std::to_string(i));
  DDLog::flushLog();
  EXPECT_EQ(logger->count(), 500);
}

TEST_F(CoreRules, ASettingTakesEffectBetweenTheRecordsAroundIt) {
  const auto logger = std::make_shared<Formatting>();
  Gate gate;
  logger->onMessage = [&] { gate.pass(); };
  DDLog::addLogger(logger);
  logger->setLogFormatter(std::make_shared<Naming>("old"));
  log(true, "before");
  ASSERT_TRUE(gate.waitForArrival());
  logger->setLogFormatter(std::make_shared<Naming>("new"));
  log(true, "after");
  gate.open();
  DDLog::flushLog();
  EXPECT_THAT(logger->lines, ElementsAre("old before", "new after"));
}

TEST_F(CoreRules, ABlockOnAnOnlyLoggersQueueKeepsItsPlaceAmongTheRecords) {
  const auto logger = std::make_shared<RecordingLogger>();
  std::vector<std::string> happened;
  const auto submit = [&](const std::string& what) {
    logger->loggerQueue()->async([&, what] { happened.push_back(what); });
  };
  Gate gate;
  logger->onMessage = [&](const DDLogMessage& message) {
    gate.pass();
    happened.emplace_back(message.logMsg());
    if (message.logMsg() == "two") submit("from inside");
  };
  DDLog::addLogger(logger);
  log(true, "one");
  ASSERT_TRUE(gate.waitForArrival());
  submit("from outside");
  for (const auto* text : {"two", "three", "four"}) log(true, text);
  gate.open();
  DDLog::flushLog();
  EXPECT_THAT(happened, ElementsAre("one", "from outside", "two", "from inside", "three", "four"));
}

// A caller who finds the ring full delivers records himself, with his own not yet in it.
TEST_F(CoreRules, ALoggerThatLogsLeavesTheTextOfAWaitingCallerAlone) {
  const auto logger = std::make_shared<RecordingLogger>();
  const auto caller = std::this_thread::get_id();
  std::vector<std::string> expected;
  std::size_t waiting = 0;  // the caller's record that was being waited with, and how many were delivered meanwhile
  int delivered = 0;
  int nested = 0;
  logger->onMessage = [&](const DDLogMessage&) {
    if (std::this_thread::get_id() != caller) return;
    if (std::exchange(waiting, expected.size()) != waiting) delivered = 0;
    // With the first one delivered there is room for another.
    if (++delivered != 2) return;
    ++nested;
    log(true, "nested, and of another length");
  };
  DDLog::addLogger(logger);
  // Mostly it is the watch that delivers.
  ASSERT_TRUE(tests::eventually([&] {
    for (int i = 0; i < 2000; ++i) log(true, expected.emplace_back("record " + std::to_string(expected.size())));
    return nested >= 10;
  }));
  DDLog::flushLog();
  auto texts = logger->texts();
  std::erase_if(texts, [](const auto& text) { return text.starts_with("nested"); });
  EXPECT_EQ(texts, expected);
}

TEST_F(CoreRules, AnOnlyLoggersQueueIsFreeWhenNothingIsLogged) {
  const auto logger = std::make_shared<RecordingLogger>();
  DDLog::addLogger(logger);
  for (int i = 0; i < 10; ++i) log(true, "text");
  ASSERT_TRUE(logger->waitForCount(10));
  bool hasRun = false;
  logger->loggerQueue()->sync([&] { hasRun = true; });
  EXPECT_TRUE(hasRun);
}

TEST_F(CoreRules, OnItsOwnQueueALoggerChangesAndReadsItsFormatterAtOnce) {
  const auto logger = std::make_shared<Formatting>();
  bool isSet = false;
  logger->onMessage = [&] {
    const auto formatter = std::make_shared<Naming>("own");
    logger->setLogFormatter(formatter);
    isSet = logger->logFormatter() == formatter;
  };
  DDLog::addLogger(logger);
  log(false, "text");
  EXPECT_TRUE(isSet);
  EXPECT_THAT(logger->lines, ElementsAre("own text"));
}

TEST_F(CoreRules, ASettingOfALoggerThatNobodySharesHasTakenEffectWhenTheCallReturns) {
  Formatting logger;
  Gate gate;
  DDLog::loggingQueue().async([&] { gate.pass(); });
  ASSERT_TRUE(gate.waitForArrival());
  std::shared_ptr<DDLogFormatter> afterwards;
  const auto formatter = std::make_shared<Naming>("own");
  std::thread setter([&] {
    logger.setLogFormatter(formatter);
    afterwards = logger.currentFormatter();
  });
  gate.open();
  setter.join();
  EXPECT_EQ(afterwards, formatter);
  DDLog::flushLog();
}

TEST_F(CoreRules, TheWatchAndTheOnlookerSleepWhenNothingIsLogged) {
  const auto one = std::make_shared<RecordingLogger>("one");
  const auto two = std::make_shared<RecordingLogger>("two");
  for (const auto& logger : {one, two}) DDLog::addLogger(logger);
  log(true, "text");
  ASSERT_TRUE(two->waitForCount(1));
  EXPECT_TRUE(tests::eventually(everyOtherThreadSleeps));
  log(true, "text");
  EXPECT_TRUE(two->waitForCount(2));
}

TEST_F(CoreRulesOnOneProcessor, FlushesRunBesideEachOther) {
  class Meeting : public DDAbstractLogger {
   public:
    using Signal = std::shared_ptr<Semaphore>;
    Meeting(Signal comes, Signal waits) : DDAbstractLogger("meeting"), _comes(std::move(comes)), _waits(std::move(waits)) {}
    void flush() override {
      _comes->release();
      hasMet = _waits->try_acquire_for(std::chrono::seconds(20));
    }
    bool hasMet = false;

   private:
    const Signal _comes;
    const Signal _waits;
  };
  const auto one = std::make_shared<Semaphore>(0);
  const auto other = std::make_shared<Semaphore>(0);
  const auto first = std::make_shared<Meeting>(one, other);
  const auto second = std::make_shared<Meeting>(other, one);
  DDLog::addLogger(first);
  DDLog::addLogger(second);
  DDLog::flushLog();
  EXPECT_TRUE(first->hasMet);
  EXPECT_TRUE(second->hasMet);
}

TEST_F(CoreRules, AnUnknownNumberOfProcessorsCountsAsOne) {
  fake.logging.process.processors = 0;
  expectOneAfterTheOther([] { log(true, "in turn"); });
}

TEST_F(CoreRules, RecordsOfManyThreadsReachEveryLoggerInTheSameOrder) {
  const auto one = std::make_shared<RecordingLogger>("one");
  const auto other = std::make_shared<RecordingLogger>("other");
  DDLog::addLogger(one);
  DDLog::addLogger(other);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < 1000; ++i) log(i % 100 != 0, std::to_string(t) + ":" + std::to_string(i));
    });
  for (auto& thread : threads) thread.join();
  DDLog::flushLog();
  EXPECT_EQ(one->count(), 4000);
  EXPECT_EQ(one->texts(), other->texts());
}

TEST_F(CoreRules, LinesPutAsideAreWrittenSoonHoweverManyRecordsFollow) {
  class Busy : public DDAbstractLogger {
   public:
    Busy() : DDAbstractLogger("busy") {}
    void logMessage(const DDLogMessage&) override {
      if (++_count == 1) gate.pass();
      const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(20);
      while (std::chrono::steady_clock::now() < end) {
      }
      if (_count == 900) writesBeforeTheLast = _writes;
    }
    void writePending() override { ++_writes; }
    Gate gate;
    int writesBeforeTheLast = 0;

   private:
    int _count = 0;
    int _writes = 0;
  };
  const auto busy = std::make_shared<Busy>();
  DDLog::addLogger(busy);
  for (int i = 0; i < 900; ++i) log(true, "one of many");
  ASSERT_TRUE(busy->gate.waitForArrival());
  busy->gate.open();
  DDLog::flushLog();
  // That was 18 milliseconds of work.
  EXPECT_GE(busy->writesBeforeTheLast, 10);
}

TEST_F(CoreRules, ACallerAlsoWaitsForLoggersThatWereStartedElsewhere) {
  Semaphore met(0);
  const auto stuck = std::make_shared<RecordingLogger>("stuck");
  const auto slow = std::make_shared<RecordingLogger>("slow");
  stuck->onMessage = [&](const DDLogMessage&) { (void)met.try_acquire_for(std::chrono::seconds(20)); };
  slow->onMessage = [&](const DDLogMessage&) {
    met.release();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
  };
  DDLog::addLogger(stuck);
  DDLog::addLogger(slow);
  log(false, "text");
  EXPECT_EQ(slow->count(), 1);
}

TEST_F(CoreRules, ALoggerThatThrowsHoldsUpNeitherTheOthersNorTheNextStatement) {
  for (const bool isOnly : {true, false}) {
    DDLog::removeAllLoggers();
    const auto throwing = std::make_shared<RecordingLogger>("throwing");
    throwing->onMessage = [](const DDLogMessage& message) { throw std::runtime_error(std::string(message.logMsg())); };
    DDLog::addLogger(throwing);
    const auto other = std::make_shared<RecordingLogger>("other");
    if (!isOnly) DDLog::addLogger(other);
    log(false, "first");
    log(true, "second");
    DDLog::flushLog();
    EXPECT_EQ(other->count(), isOnly ? 0 : 2);
  }
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("DDLog: a logger or a formatter has thrown an exception: first"));
}

TEST_F(CoreRules, ABlockThatThrowsHoldsNobodyUp) {
  DDLog::loggingQueue().sync([] { throw 1; });
  bool hasRun = false;
  DDLog::loggingQueue().sync([&] { hasRun = true; });
  EXPECT_TRUE(hasRun);
}

TEST_F(CoreRules, AStatementLeavesTheCallersErrorAsItIs) {
  const auto logger = std::make_shared<RecordingLogger>();
  logger->onMessage = [](const DDLogMessage&) { errno = EIO; };
  DDLog::addLogger(logger);
  errno = ENOENT;
  log(false, "text");
  EXPECT_EQ(errno, ENOENT);
}
