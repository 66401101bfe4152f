#include "logging/DDAbstractDatabaseLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/DDLog.h"
#include "platform/fake/FakePlatform.h"
#include "tests/logging/NotingDatabase.h"

using namespace tests;
using foundation::Seconds;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Database : public DatabaseTest {
 protected:
  // Without the deletion every five minutes.
  void withoutDeleting() {
    logger->setMaxAge(0);
    logger->takeNotes();
  }
};

}  // namespace

TEST_F(Database, HasTheDefaults) {
  EXPECT_EQ(logger->saveThreshold(), 500);
  EXPECT_EQ(logger->saveInterval(), 60.0);
  EXPECT_EQ(logger->maxAge(), 604800.0);
  EXPECT_EQ(logger->deleteInterval(), 300.0);
  EXPECT_FALSE(logger->deleteOnEverySave());
}

TEST_F(Database, TheFiveHundredthRecordIsSavedWithItsBatchAtOnce) {
  log(499);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  log();
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
}

TEST_F(Database, FewerRecordsAreSavedSixtySecondsAfterTheFirst) {
  log();
  pass(30);
  log(498);
  pass(29.9);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  pass(0.2);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
  pass(120);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
}

TEST_F(Database, RejectedRecordsNeitherCountNorArmTheTimer) {
  log(600, "no");
  pass(100);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  logger->savePendingLogEntries();
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
}

TEST_F(Database, AThresholdOfZeroNeverSavesByCount) {
  logger->setSaveThreshold(0);
  log(2000);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  pass(60);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
  log();
  DDLog::flushLog();
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
  log();
  DDLog::removeLogger(logger);
  pass(0);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
}

TEST_F(Database, LoweringTheThresholdBelowWhatIsUnsavedSavesAtOnce) {
  log(10);
  logger->setSaveThreshold(11);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  logger->setSaveThreshold(10);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
}

TEST_F(Database, ASaveWithoutRecordsCallsNoHookAndStillSuspendsTheTimer) {
  withoutDeleting();
  log();
  logger->savePendingLogEntries();
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
  EXPECT_EQ(fake.clock.pendingCount(), 0);
  logger->savePendingLogEntries();
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  EXPECT_EQ(fake.clock.pendingCount(), 0);
}

TEST_F(Database, TheTimerIsArmedByTheFirstUnsavedRecordOnly) {
  withoutDeleting();
  EXPECT_EQ(fake.clock.nextCall(), std::nullopt);
  log();
  EXPECT_EQ(fake.clock.nextCall(), Seconds(60));
  pass(10);
  log();
  EXPECT_EQ(fake.clock.nextCall(), Seconds(50));
}

TEST_F(Database, OldEntriesAreDeletedEveryFiveMinutes) {
  pass(299);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  pass(1);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("delete"));
  pass(300);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("delete"));
}

TEST_F(Database, TheFirstDeletionIsDueAtOnce) {
  const auto fresh = std::make_shared<NotingDatabase>();
  DDLog::addLogger(fresh);
  DDLog::loggingQueue().sync([] {});
  fresh->loggerQueue()->sync([] {});
  fake.clock.advance(Seconds(0));
  EXPECT_THAT(fresh->takeNotes(), ElementsAre("delete"));
}

TEST_F(Database, AnAgeOfZeroStopsDeletionAndAPositiveOneDeletesAtOnce) {
  logger->setMaxAge(0);
  pass(1000);
  logger->deleteOldLogEntries();
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  EXPECT_EQ(fake.clock.pendingCount(), 0);
  logger->setMaxAge(100);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("delete"));
  EXPECT_EQ(fake.clock.nextCall(), Seconds(300));
}

TEST_F(Database, AShorterAgeDeletesAtOnceAndALongerOneDoesNot) {
  logger->setMaxAge(1000);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("delete"));
  logger->setMaxAge(2000);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  logger->setMaxAge(2000);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
}

TEST_F(Database, AnotherPeriodOfDeletionCountsFromTheLastDeletion) {
  pass(100);
  logger->setDeleteInterval(200);
  logger->takeNotes();
  EXPECT_EQ(fake.clock.nextCall(), Seconds(100));
  logger->setDeleteInterval(0);
  logger->takeNotes();
  EXPECT_EQ(fake.clock.nextCall(), std::nullopt);
  logger->setDeleteInterval(150);
  logger->takeNotes();
  EXPECT_EQ(fake.clock.nextCall(), Seconds(50));
}

TEST_F(Database, ASaveIntervalOfZeroRemovesTheTimerAndRecordsWait) {
  withoutDeleting();
  log();
  logger->setSaveInterval(0);
  pass(1000);
  EXPECT_THAT(logger->takeNotes(), IsEmpty());
  DDLog::flushLog();
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
}

TEST_F(Database, AnotherSaveIntervalCountsFromTheFirstUnsavedRecord) {
  withoutDeleting();
  log();
  pass(10);
  logger->setSaveInterval(30);
  logger->takeNotes();
  EXPECT_EQ(fake.clock.nextCall(), Seconds(20));
}

TEST_F(Database, SavesAlsoDeleteWhenAskedTo) {
  logger->setDeleteOnEverySave(true);
  log();
  logger->savePendingLogEntries();
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save and delete"));
}

TEST_F(Database, RemovalSavesAndDestroysTheTimers) {
  log();
  DDLog::removeLogger(logger);
  pass(0);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
  EXPECT_EQ(fake.clock.pendingCount(), 0);
}

TEST_F(Database, AHookThatThrowsWhenATimerIsDueIsToldAndCalledAgain) {
  log();
  logger->loggerQueue()->sync([&] { logger->throws = true; });
  pass(60);
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("DDLog: a logger or a formatter has thrown an exception: no save"));
  logger->loggerQueue()->sync([&] { logger->throws = false; });
  pass(60);
  EXPECT_THAT(logger->takeNotes(), ElementsAre("save"));
}

TEST_F(Database, AHookThatThrowsWhenASettingChangesIsTold) {
  log(2);
  logger->loggerQueue()->sync([&] { logger->throws = true; });
  logger->setSaveThreshold(1);
  pass(0);
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("DDLog: a logger or a formatter has thrown an exception: no save"));
}

TEST_F(Database, SettingsMayBeReadFromTheLoggersOwnQueue) {
  double age = 0;
  logger->loggerQueue()->sync([&] { age = logger->maxAge(); });
  EXPECT_EQ(age, 604800.0);
}

TEST_F(Database, TheBaseAcceptsNothing) {
  const auto base = std::make_shared<DDAbstractDatabaseLogger>("base");
  DDLog::addLogger(base);
  log();
  DDLog::removeLogger(logger);
  pass(0);
  logger->takeNotes();
  base->savePendingLogEntries();
}
