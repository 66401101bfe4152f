#include "logging/DDPostgreSQLLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "logging/LogSite.h"
#include "platform/fake/FakePlatform.h"
#include "tests/logging/LogTest.h"
#include "tests/support/Eventually.h"

using namespace tests;
using foundation::Seconds;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class PostgreSQLLogger : public LogTest {
 protected:
  PostgreSQLLogger() { add(std::size_t{1} << 20U); }

  void add(std::size_t capacity) {
    if (logger) remove();
    logger =
        std::make_shared<DDPostgreSQLLogger>(fake.platform, platform::LogTableAddress{.server = "dbname=logs"}, capacity);
    logger->setPatience(10);
    DDLog::addLogger(logger);
    DDLog::loggingQueue().sync([] {});
  }

  void remove() {
    DDLog::removeLogger(logger);
    DDLog::loggingQueue().sync([] {});
    logger->loggerQueue()->sync([] {});
  }

  // That many more records, with the numbers as their texts.
  void log(int count) {
    for (; count > 0; --count) logText(true, std::to_string(++logged));
    DDLog::loggingQueue().sync([] {});
  }

  // The time passes in steps, and the feed's work of each is done.
  void pass(double seconds) {
    for (; seconds > 0; seconds -= 0.1) {
      fake.clock.advance(Seconds(0.1));
      logger->loggerQueue()->sync([] {});
    }
  }

  bool isStored(std::size_t count) {
    return tests::eventually([&] {
      pass(1);
      return database.rows().size() >= count;
    });
  }

  std::vector<std::string> numbered(int from, int to) {
    std::vector<std::string> texts;
    for (int i = from; i <= to; ++i) texts.push_back(std::to_string(i));
    return texts;
  }

  platform::fake::FakeLogDatabase& database = fake.logging.database;
  std::shared_ptr<DDPostgreSQLLogger> logger;
  int logged = 0;
};

}  // namespace

TEST_F(PostgreSQLLogger, HasARowForEveryRecordWithItsParts) {
  const DDLogSite site{DDLogFlagError, 7};
  site.error(LogFields{{"user", "Anna"}, {"tries", 3}}, "%@ cannot log in", "Anna");
  logText(true, "plain");
  DDLog::flushLog();
  const auto rows = database.rows();
  ASSERT_EQ(rows.size(), 2);
  EXPECT_EQ(rows[0].number, 1);
  EXPECT_EQ(rows[0].flag, DDLogFlagError);
  EXPECT_EQ(rows[0].context, 7);
  EXPECT_THAT(*rows[0].file, HasSubstr("DDPostgreSQLLogger_test.cpp"));
  EXPECT_EQ(rows[0].text, "Anna cannot log in");
  EXPECT_EQ(rows[0].fields, R"({"user":"Anna","tries":3})");
  EXPECT_EQ(rows[0].time, fake.clock.now());
  EXPECT_EQ(rows[0].queue, "com.apple.main-thread");
  EXPECT_EQ(rows[1].number, 2);
  EXPECT_EQ(rows[1].fields, std::nullopt);
}

TEST_F(PostgreSQLLogger, StoresABatchAtOnce) {
  logger->setSaveThreshold(100);
  log(99);
  EXPECT_THAT(database.rows(), IsEmpty());
  log(1);
  EXPECT_TRUE(tests::eventually([&] { return database.rows().size() == 100; }));
  EXPECT_THAT(database.batches(), ElementsAre(100));
}

TEST_F(PostgreSQLLogger, KeepsRecordsWhileTheServerIsAway) {
  database.isUnreachable = true;
  logger->setSaveThreshold(10);
  log(100);
  DDLog::flushLog();  // fails, and does not wait
  EXPECT_THAT(database.rows(), IsEmpty());
  EXPECT_THAT(fake.systemLog.lines, Contains("DDPostgreSQLLogger: records wait for the server: no answer"));
  database.isUnreachable = false;
  EXPECT_TRUE(isStored(100));
  EXPECT_EQ(database.texts(), numbered(1, 100));
}

TEST_F(PostgreSQLLogger, StoresNothingTwiceWhenAnAnswerIsLost) {
  database.losesAnswers = true;
  log(100);
  DDLog::flushLog();
  log(50);
  DDLog::flushLog();
  database.losesAnswers = false;
  DDLog::flushLog();
  EXPECT_EQ(database.texts(), numbered(1, 150));
}

TEST_F(PostgreSQLLogger, TriesLessOftenTheLongerTheServerIsAway) {
  database.isUnreachable = true;
  log(1);
  DDLog::flushLog();
  EXPECT_TRUE(tests::eventually([&] {
    pass(0.1);
    return database.attempts >= 5;  // after 0.1, 0.3, 0.7 and 1.5 seconds
  }));
  const int before = database.attempts;
  logger->setSaveThreshold(1);
  log(50);  // saves do not hurry it
  EXPECT_LE(database.attempts, before + 1);
  database.isUnreachable = false;
}

TEST_F(PostgreSQLLogger, TriesAgainWithTheNextRecordsWhenThereWasNoMemoryForATimer) {
  database.isUnreachable = true;
  logger->setSaveThreshold(10);
  fake.clock.callsWithoutMemory = 1000;
  log(10);
  DDLog::flushLog();
  database.isUnreachable = false;
  log(10);
  EXPECT_TRUE(tests::eventually([&] { return database.rows().size() == 20; }));
  fake.clock.callsWithoutMemory = 0;
}

TEST_F(PostgreSQLLogger, LetsNobodyWaitForASilentServer) {
  database.isSilent = true;
  logger->setSaveThreshold(10);
  ::alarm(60);
  log(5000);
  logText(false, "synchronous");
  logger->setPatience(0.01);
  DDLog::flushLog();
  remove();
  ::alarm(0);
  EXPECT_THAT(fake.systemLog.lines, Contains("DDPostgreSQLLogger: 5001 records were dropped"));
}

TEST_F(PostgreSQLLogger, KeepsNoMoreThanItsCapacityAndSaysHowManyRecordsThatCost) {
  constexpr std::size_t rowSize = 500;
  add(100 * rowSize);
  database.isUnreachable = true;
  log(5000);
  DDLog::flushLog();
  database.isUnreachable = false;
  DDLog::flushLog();
  const auto stored = static_cast<int>(database.rows().size());
  EXPECT_GT(stored, 90);
  EXPECT_LT(stored, 250);
  EXPECT_EQ(database.texts(), numbered(1, stored));
  // There is room again, and the numbers tell of the gap.
  log(1);
  DDLog::flushLog();
  EXPECT_EQ(database.rows().back().number, 5001);
  remove();
  EXPECT_THAT(fake.systemLog.lines,
              Contains("DDPostgreSQLLogger: there is no room for more records, and they are dropped"));
  EXPECT_THAT(fake.systemLog.lines,
              Contains("DDPostgreSQLLogger: " + std::to_string(5000 - stored) + " records were dropped"));
}

TEST_F(PostgreSQLLogger, LosesOnlyARecordThatTheServerRefuses) {
  log(20);
  logText(true, platform::fake::FakeLogDatabase::poison);
  log(20);
  DDLog::flushLog();
  EXPECT_EQ(database.texts(), numbered(1, 40));
  EXPECT_THAT(fake.systemLog.lines, Contains("DDPostgreSQLLogger: a record was refused: a text that cannot be stored"));
}

TEST_F(PostgreSQLLogger, RemovesOldRecords) {
  logger->setMaxAge(100);
  log(1);
  DDLog::flushLog();
  fake.clock.advance(Seconds(90));
  log(1);
  DDLog::flushLog();
  fake.clock.advance(Seconds(20));
  logger->deleteOldLogEntries();
  EXPECT_TRUE(tests::eventually([&] { return database.rows().size() == 1; }));
  EXPECT_THAT(database.texts(), ElementsAre("2"));
}

TEST_F(PostgreSQLLogger, RemovesOldRecordsAtEverySaveWhenAskedTo) {
  logger->setMaxAge(100);
  logger->setDeleteInterval(0);
  logger->setDeleteOnEverySave(true);
  log(1);
  DDLog::flushLog();
  fake.clock.advance(Seconds(200));
  log(1);
  DDLog::flushLog();
  EXPECT_TRUE(tests::eventually([&] { return database.texts() == std::vector<std::string>{"2"}; }));
}

TEST_F(PostgreSQLLogger, IsAnotherWriterInAForkedChild) {
  log(1);
  DDLog::flushLog();
  log(1);  // the parent's to store
  logger->loggerQueue()->sync([&] { logger->didFork(); });
  log(1);
  DDLog::flushLog();
  EXPECT_THAT(database.texts(), ElementsAre("1", "3"));
  EXPECT_EQ(database.rows().back().number, 1);
  EXPECT_EQ(database.writerCount(), 2);
}

TEST_F(PostgreSQLLogger, IsStillThereWhenItIsAddedAgain) {
  log(1);
  remove();
  EXPECT_THAT(database.texts(), ElementsAre("1"));
  DDLog::addLogger(logger);
  log(1);
  DDLog::flushLog();
  EXPECT_THAT(database.texts(), ElementsAre("1", "2"));
}

TEST_F(PostgreSQLLogger, TakesNothingWhereNoDatabaseIsKnown) {
  fake.logging.host.openLogTable = nullptr;
  log(10);
  logger->deleteOldLogEntries();
  DDLog::flushLog();
  EXPECT_THAT(database.rows(), IsEmpty());
}
