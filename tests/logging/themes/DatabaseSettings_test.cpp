// Changes of the database logger's settings, row by row, and the end of its life.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "logging/DDAbstractDatabaseLogger.h"
#include "logging/DDLog.h"
#include "platform/fake/FakePlatform.h"
#include "tests/logging/NotingDatabase.h"

using namespace tests;
using foundation::Seconds;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class DatabaseSettings : public DatabaseTest {
 protected:
  std::optional<Seconds> nextCall() {
    logger->loggerQueue()->sync([] {});
    return fake.clock.nextCall();
  }
};

}  // namespace

TEST_F(DatabaseSettings, EveryHookRunsOnTheLoggersQueue) {
  log(1, "note");
  pass(300);
  logger->savePendingLogEntries();
  logger->setDeleteOnEverySave(true);
  log();
  DDLog::flushLog();
  EXPECT_THAT(logger->takeNotes(), ElementsAre("log", "save", "delete", "save and delete"));
}

TEST_F(DatabaseSettings, ARaisedThresholdWaitsForMore) {
  log(499);
  logger->setSaveThreshold(1000);
  logger->takeNotes();
  log(500);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  log();
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
}

TEST_F(DatabaseSettings, AThresholdThatIsReachedAtOnceSavesOnlyWhatIsThere) {
  logger->setSaveThreshold(1);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  log();
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
}

TEST_F(DatabaseSettings, AThresholdOfZeroLeavesWhatIsUnsaved) {
  log(10);
  logger->setSaveThreshold(0);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
}

TEST_F(DatabaseSettings, ASaveIntervalAfterNoneArmsTheTimerForWhatWaits) {
  logger->setMaxAge(0);
  logger->setSaveInterval(0);
  log();
  pass(10);
  EXPECT_EQ(nextCall(), std::nullopt);
  logger->setSaveInterval(60);
  EXPECT_EQ(nextCall(), Seconds(50));
  pass(50);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
}

TEST_F(DatabaseSettings, ASaveIntervalWithNothingUnsavedArmsNothing) {
  logger->setMaxAge(0);
  logger->setSaveInterval(0);
  logger->setSaveInterval(60);
  EXPECT_EQ(nextCall(), std::nullopt);
  log();
  EXPECT_EQ(nextCall(), Seconds(60));
}

TEST_F(DatabaseSettings, TheSameValuesChangeNothing) {
  pass(100);
  log();
  pass(10);
  logger->setSaveInterval(60);
  logger->setSaveThreshold(500);
  logger->setMaxAge(604800);
  logger->setDeleteInterval(300);
  logger->setDeleteOnEverySave(false);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  EXPECT_EQ(nextCall(), Seconds(50));
}

TEST_F(DatabaseSettings, AShorterAgePutsTheNextDeletionOffByAWholePeriod) {
  pass(100);
  logger->setMaxAge(1000);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("delete"));
  EXPECT_EQ(nextCall(), Seconds(300));
}

TEST_F(DatabaseSettings, ALongerAgeLeavesTheTimerAsItIs) {
  pass(100);
  logger->setMaxAge(1e9);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  EXPECT_EQ(nextCall(), Seconds(200));
}

TEST_F(DatabaseSettings, ANegativeAgeIsDisabledToo) {
  logger->setMaxAge(-1);
  EXPECT_EQ(nextCall(), std::nullopt);
  logger->setMaxAge(-2);
  logger->setMaxAge(0);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
}

TEST_F(DatabaseSettings, AnAgeWithoutAPeriodDeletesAtOnceAndNeverAgain) {
  logger->setDeleteInterval(0);
  logger->setMaxAge(10);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("delete"));
  EXPECT_EQ(nextCall(), std::nullopt);
}

TEST_F(DatabaseSettings, APeriodWithoutAnAgeDeletesNothing) {
  logger->setMaxAge(0);
  logger->setDeleteInterval(10);
  pass(100);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  EXPECT_EQ(nextCall(), std::nullopt);
}

TEST_F(DatabaseSettings, DeletingOnEverySaveIsOnlyKept) {
  log();
  logger->setDeleteOnEverySave(true);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  EXPECT_TRUE(logger->deleteOnEverySave());
  pass(60);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save and delete"));
}

TEST_F(DatabaseSettings, OnTheLoggersQueueASettingTakesEffectAtOnce) {
  log(3);
  logger->loggerQueue()->sync([&] {
    logger->setSaveThreshold(2);
    EXPECT_EQ(logger->saveThreshold(), 2);
  });
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
}

TEST_F(DatabaseSettings, DeletingOnRequestStartsThePeriodAnewOnlyWhenItIsSetAgain) {
  pass(100);
  logger->deleteOldLogEntries();
  EXPECT_THAT(logger->takeNotes(), ElementsAre("delete"));
  logger->setDeleteInterval(250);
  EXPECT_EQ(nextCall(), Seconds(250));
}

TEST_F(DatabaseSettings, ALoggerThatIsAddedAgainHasItsTimersAgain) {
  DDLog::removeLogger(logger);
  pass(0);
  EXPECT_EQ(nextCall(), std::nullopt);
  DDLog::addLogger(logger);
  pass(0);
  logger->setMaxAge(0);
  log();
  EXPECT_EQ(nextCall(), Seconds(60));
}

TEST_F(DatabaseSettings, AfterASaveByCountTheNextRecordArmsTheTimerAnew) {
  logger->setMaxAge(0);
  logger->setSaveThreshold(3);
  log(2);
  pass(30);
  log();
  EXPECT_EQ(nextCall(), std::nullopt);
  log();
  EXPECT_EQ(nextCall(), Seconds(60));
}

TEST_F(DatabaseSettings, TheApplicationsEndCommitsTheBatch) {
  log();
  fake.platform.defaultNotificationCenter.post({std::string(foundation::applicationWillTerminateNotification), {}, {}});
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
}

TEST_F(DatabaseSettings, ADestroyedLoggerLeavesNoTimer) {
  class Bare : public DDAbstractDatabaseLogger {
   public:
    Bare() : DDAbstractDatabaseLogger("bare") {}
  };
  DDLog::removeAllLoggers();
  pass(0);
  auto bare = std::make_shared<Bare>();
  bare->loggerQueue()->sync([&] { bare->didAddLogger(); });
  EXPECT_EQ(fake.clock.pendingCount(), 1);
  bare.reset();
  EXPECT_EQ(fake.clock.pendingCount(), 0);
}

TEST_F(DatabaseSettings, AnIntervalWithoutEndNeverEnds) {
  logger->setSaveInterval(std::numeric_limits<double>::infinity());
  logger->setDeleteInterval(std::numeric_limits<double>::infinity());
  log();
  pass(1e6);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
}
