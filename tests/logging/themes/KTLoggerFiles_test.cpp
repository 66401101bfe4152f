// The records of the facade in the log files, and its list of the files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/DDLog.h"
#include "logging/KTLogger.h"
#include "platform/fake/FakePlatform.h"
#include "tests/logging/RecordingLogger.h"

using namespace tests;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class FacadeFiles : public testing::Test {
 protected:
  void threshold(int level) {
    fake.enableDebugLogging();
    fake.defaults.values.insert_or_assign("KTLoggingLevel", level);
  }
  static void log(int level, std::string_view text) {
    KTLogger::sharedLogger()->log_level_message("caller:", level, "%@", text);
  }
  static void logAllLevels() {
    for (int level = 0; level <= 8; ++level) log(level, "level " + std::to_string(level));
  }
  // The messages of all files, the oldest file first, without their time stamps. Does not flush.
  std::vector<std::string> messages() {
    std::vector<std::string> all;
    for (const auto& path : files().paths()) {
      const std::string contents = files().contents(path).value_or("");
      for (std::size_t start = 0; start < contents.size();) {
        const auto end = contents.find('\n', start);
        all.push_back(contents.substr(start, end - start).substr(stampLength));
        start = end + 1;
      }
    }
    return all;
  }
  platform::fake::FakeLogStorage& files() { return fake.logging.storage; }

  static constexpr std::size_t stampLength = std::string_view("yyyy/MM/dd HH:mm:ss:SSS  ").size();
  platform::fake::FakePlatform fake;
};

}  // namespace

TEST_F(FacadeFiles, TheGraverLevelsReachTheFileInOrder) {
  logAllLevels();
  DDLog::flushLog();
  EXPECT_THAT(messages(), ElementsAre("level 0", "level 1", "level 3", "level 4"));
}

TEST_F(FacadeFiles, InformationAndDebuggingNeverReachTheFile) {
  threshold(7);
  logAllLevels();
  DDLog::flushLog();
  EXPECT_THAT(messages(), ElementsAre("level 0", "level 1", "level 3", "level 4"));
}

TEST_F(FacadeFiles, AThresholdKeepsTheLevelsAboveItOutOfTheFile) {
  threshold(1);
  logAllLevels();
  DDLog::flushLog();
  EXPECT_THAT(messages(), ElementsAre("level 0", "level 1"));
}

TEST_F(FacadeFiles, ANegativeThresholdKeepsEverythingOutOfTheFile) {
  threshold(-1);
  logAllLevels();
  EXPECT_THAT(KTLogger::sharedLogger()->logFileList(), IsEmpty());
  EXPECT_THAT(files().paths(), IsEmpty());
}

TEST_F(FacadeFiles, AlwaysAlertAndErrorAreOnFileWhenTheCallReturns) {
  for (const int level : {0, 1, 3}) {
    log(level, std::to_string(level));
    EXPECT_THAT(messages().back(), std::to_string(level));
  }
}

TEST_F(FacadeFiles, AWarningDoesNotWaitForTheLoggers) {
  const auto gate = std::make_shared<Gate>();
  const auto held = std::make_shared<RecordingLogger>();
  held->onMessage = [gate](const DDLogMessage&) { gate->pass(); };
  DDLog::addLogger(held);
  log(4, "a warning");
  EXPECT_EQ(held->count(), 0);
  gate->open();
  EXPECT_TRUE(held->waitForCount(1));
}

TEST_F(FacadeFiles, ARecordSaysWhatItsLevelIsRecordedAs) {
  const auto recording = std::make_shared<RecordingLogger>();
  DDLog::addLogger(recording);
  logAllLevels();
  DDLog::flushLog();
  std::vector<std::pair<int, int>> levelsAndFlags;
  for (const auto& record : recording->records()) {
    levelsAndFlags.emplace_back(record.logLevel(), record.logFlag());
    EXPECT_EQ(record.logContext(), 0);
    EXPECT_EQ(record.fileName(), "KTLogger");
    EXPECT_THAT(record.file(), EndsWith("KCLibKit/Code/KTLogger.mm"));
    EXPECT_EQ(record.methodName(), "log:level:message:");
  }
  EXPECT_THAT(levelsAndFlags, ElementsAre(std::pair(0, 4), std::pair(3, 1), std::pair(3, 1), std::pair(3, 2)));
}

TEST_F(FacadeFiles, ThePercentSignsOfAFinishedMessageStayInTheFile) {
  KTLogger::sharedLogger()->log_level_message("caller:", 3, "%@", "100 %d%@");
  EXPECT_THAT(messages(), ElementsAre("100 %d%@"));
}

TEST_F(FacadeFiles, TheListHasTheNewestFileFirstAndEverythingInIt) {
  log(3, "yesterday");
  fake.clock.advance(foundation::Seconds(86400.0));
  log(4, "today");
  const auto list = KTLogger::sharedLogger()->logFileList();
  ASSERT_THAT(list, SizeIs(2));
  EXPECT_THAT(files().contents(list[0]).value_or(""), EndsWith("  today\n"));
  EXPECT_THAT(files().contents(list[1]).value_or(""), EndsWith("  yesterday\n"));
}

TEST_F(FacadeFiles, AFileIsRolledAfterADayAndNotBefore) {
  log(3, "one");
  fake.clock.advance(foundation::Seconds(86399.0));
  log(3, "two");
  EXPECT_THAT(files().paths(), SizeIs(1));
  fake.clock.advance(foundation::Seconds(1.0));
  log(3, "three");
  EXPECT_THAT(files().paths(), SizeIs(2));
}

TEST_F(FacadeFiles, SevenFilesAreKeptBesidesTheOneInUse) {
  for (int day = 0; day < 10; ++day) {
    log(3, "day " + std::to_string(day));
    fake.clock.advance(foundation::Seconds(86400.0));
  }
  log(3, "the last day");
  const auto list = KTLogger::sharedLogger()->logFileList();
  ASSERT_THAT(list, SizeIs(8));
  EXPECT_THAT(files().contents(list.back()).value_or(""), EndsWith("  day 3\n"));
}

TEST_F(FacadeFiles, WithNowhereToLogToStatementsAreEchoedOnly) {
  fake.platform.loggingHost = nullptr;
  log(3, "an error");
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("<Error> an error"));
  EXPECT_THAT(KTLogger::sharedLogger()->logFileList(), IsEmpty());
}
