// The file logger when the clock jumps, is set, or days pass.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "logging/DDFileLogger.h"
#include "logging/DDLog.h"
#include "platform/fake/FakePlatform.h"
#include "tests/support/Environment.h"

using foundation::Seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const std::string folder = "/Library/Logs/Installer";
constexpr double day = 86400.0;
// 2023-10-29, two seconds before three o'clock becomes two o'clock, and 2023-03-26, two seconds before two becomes three.
constexpr std::int64_t endOfSummer = 1698541198;
constexpr std::int64_t endOfWinter = 1679792398;

class Noting : public DDLogFileManagerDefault {
 public:
  explicit Noting(platform::Platform& platform) : DDLogFileManagerDefault(platform, folder) {}
  void didArchiveLogFile(const std::string&) override { ++archived; }
  void didRollAndArchiveLogFile(const std::string&) override { ++rolled; }
  int archived = 0;
  int rolled = 0;
};

class FileTimes : public testing::Test {
 protected:
  FileTimes() { ::tzset(); }
  ~FileTimes() override {
    DDLog::removeAllLoggers();
    DDLog::flushLog();
  }
  platform::fake::FakeLogStorage& files() { return fake.logging.storage; }
  void start() {
    manager = std::make_shared<Noting>(fake.platform);
    logger = std::make_shared<DDFileLogger>(fake.platform, manager);
    DDLog::addLogger(logger);
  }
  void restart() {
    DDLog::removeAllLoggers();
    DDLog::flushLog();
    logger.reset();
    start();
  }
  static void log(std::string_view text) {
    DDLog::log_level_flag_context_file_function_line_format(false, 3, 1, 0, "f.mm", "f", 1, "%@", text);
  }
  // How many files were rolled, once they are on the medium.
  int rolls() {
    logger->willEnd();
    return manager->rolled;
  }
  void setClock(std::int64_t seconds) {
    fake.clock.advanceWallClock(foundation::Date(std::chrono::seconds(seconds)) - fake.clock.now());
  }
  void pass(double seconds) {
    DDLog::loggingQueue().sync([] {});
    fake.clock.advance(Seconds(seconds));
    logger->loggerQueue()->sync([] {});
  }
  void expectADayOfSeconds(std::int64_t change) {
    setClock(change - 3600);
    start();
    log("first");
    pass(day - 1);
    log("still the same");
    EXPECT_EQ(rolls(), 0);
    EXPECT_THAT(files().paths(), SizeIs(1));
    pass(1);
    EXPECT_EQ(rolls(), 1);
    log("another");
    EXPECT_THAT(files().paths(), SizeIs(2));
  }
  std::string stamp() {
    return foundation::DateFormatter("yyyy/MM/dd HH:mm:ss:SSS").stringFromDate(fake.clock.now()) + "  ";
  }
  std::vector<std::string> lines() {
    std::vector<std::string> all;
    for (const auto& path : files().paths()) {
      const std::string contents = files().contents(path).value_or("");
      for (std::size_t start = 0; start < contents.size();) {
        const auto end = contents.find('\n', start);
        all.push_back(contents.substr(start, end - start));
        start = end + 1;
      }
    }
    return all;
  }

  const tests::EnvironmentVariable zone{"TZ", "CET-1CEST,M3.5.0,M10.5.0/3"};
  platform::fake::FakePlatform fake;
  std::shared_ptr<Noting> manager;
  std::shared_ptr<DDFileLogger> logger;
};

}  // namespace

TEST_F(FileTimes, StampsFollowTheEndOfSummerTimeWithinOneFile) {
  setClock(endOfSummer);
  start();
  for (const char* text : {"a", "b", "c"}) {
    log(text);
    pass(1);
  }
  EXPECT_THAT(lines(),
              ElementsAre("2023/10/29 02:59:58:000  a", "2023/10/29 02:59:59:000  b", "2023/10/29 02:00:00:000  c"));
}

TEST_F(FileTimes, StampsFollowTheBeginningOfSummerTimeWithinOneFile) {
  setClock(endOfWinter);
  start();
  for (const char* text : {"a", "b", "c"}) {
    log(text);
    pass(1);
  }
  EXPECT_THAT(lines(),
              ElementsAre("2023/03/26 01:59:58:000  a", "2023/03/26 01:59:59:000  b", "2023/03/26 03:00:00:000  c"));
}

TEST_F(FileTimes, AFileLastsADayOfSecondsThroughTheEndOfSummerTime) { expectADayOfSeconds(endOfSummer); }

TEST_F(FileTimes, AFileLastsADayOfSecondsThroughTheBeginningOfSummerTime) { expectADayOfSeconds(endOfWinter); }

TEST_F(FileTimes, RecordsGoOnWhenTheClockIsSetBack) {
  start();
  log("before");
  fake.clock.setBack(Seconds(day * 400));
  log("after");
  EXPECT_THAT(files().paths(), SizeIs(1));
  EXPECT_THAT(lines(), SizeIs(2));
  files().unlink(files().paths().at(0));
  log("a file that is gone is noticed all the same");
  DDLog::flushLog();
  EXPECT_THAT(files().paths(), SizeIs(1));
}

TEST_F(FileTimes, ADeletedFileIsNoticedWithoutAFlushThoughTheClockWasSetBack) {
  start();
  log("before");
  fake.clock.setBack(Seconds(day * 400));
  files().unlink(files().paths().at(0));
  log("into nowhere, or not");
  log("after");
  ASSERT_THAT(files().paths(), SizeIs(1));
  EXPECT_EQ(lines().back(), stamp() + "after");
}

TEST_F(FileTimes, OnlyOneTimerIsEverSet) {
  start();
  log("one");
  for (int i = 1; i < 50; ++i) logger->setRollingFrequency(day + i);
  pass(0);
  EXPECT_EQ(fake.clock.pendingCount(), 1);
  logger->rollLogFile();
  log("two");
  pass(1);
  EXPECT_EQ(fake.clock.pendingCount(), 1);
}

TEST_F(FileTimes, AFileFromTheFutureIsContinued) {
  start();
  log("tomorrow's");
  fake.clock.setBack(Seconds(day * 2));
  restart();
  log("today's");
  EXPECT_THAT(files().paths(), SizeIs(1));
  EXPECT_EQ(manager->archived, 0);
}

TEST_F(FileTimes, AClockSetForwardByADayRollsTheFileWithinAnHour) {
  start();
  log("old");
  fake.clock.advanceWallClock(Seconds(day));
  pass(3600);
  EXPECT_EQ(rolls(), 1);
}

TEST_F(FileTimes, AFileThatIsRolledBeforeItsTimeIsNotRolledAgainAtIt) {
  start();
  log("one");
  logger->rollLogFile();
  DDLog::flushLog();
  EXPECT_EQ(rolls(), 1);
  pass(day * 2);
  EXPECT_EQ(rolls(), 1);
  log("two");
  pass(day - 1);
  EXPECT_EQ(rolls(), 1);
  pass(1);
  EXPECT_EQ(rolls(), 2);
}

TEST_F(FileTimes, AContinuedFileIsRolledAtItsOwnAgeNotAtTheLoggers) {
  start();
  log("one");
  pass(day - 100);
  restart();
  log("two");
  pass(99);
  EXPECT_EQ(rolls(), 0);
  pass(1);
  EXPECT_EQ(rolls(), 1);
}

TEST_F(FileTimes, ALongerFrequencyPutsTheRollOff) {
  start();
  log("one");
  pass(day - 1);
  logger->setRollingFrequency(day * 2);
  pass(day);
  EXPECT_EQ(rolls(), 0);
  pass(1);
  EXPECT_EQ(rolls(), 1);
}

TEST_F(FileTimes, WithoutAFileRollingDoesNothing) {
  start();
  logger->rollLogFile();
  logger->setRollingFrequency(1);
  logger->setMaximumFileSize(1);
  pass(day);
  EXPECT_EQ(rolls(), 0);
  EXPECT_THAT(files().paths(), IsEmpty());
}

TEST_F(FileTimes, OnItsQueueSettingsTakeEffectAndAreReadAtOnce) {
  start();
  log("one");
  logger->loggerQueue()->sync([&] {
    logger->setMaximumFileSize(5);
    EXPECT_EQ(logger->maximumFileSize(), 5);
    EXPECT_EQ(rolls(), 1);
    logger->setRollingFrequency(50);
    EXPECT_EQ(logger->rollingFrequency(), 50);
  });
}

TEST_F(FileTimes, AFileThatIsPrunedBeforeItsLastRitesIsSparedThem) {
  start();
  for (const bool isPruned : {true, false}) {
    log("one");
    const std::string path = files().paths().back();
    logger->rollLogFile();
    DDLog::removeAllLoggers();
    DDLog::flushLog();
    logger->loggerQueue()->sync([] {});
    if (isPruned) files().unlink(path);
    logger.reset();
    EXPECT_EQ(files().synchronizeCount(path), isPruned ? 0 : 1);
    start();
  }
}
