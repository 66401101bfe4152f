#include "examples/sqlite_logger/SQLiteLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/DDLog.h"
#include "platform/fake/FakePlatform.h"
#include "tests/support/TemporaryFolder.h"

using foundation::Seconds;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class SQLite : public testing::Test {
 protected:
  SQLite() { DDLog::addLogger(logger); }

  static void log(std::string_view text) {
    DDLog::log_level_flag_context_file_function_line_format(true, 3, 2, 9, "Code/Thing.mm", "do:it:", 7, "%@", text);
    DDLog::loggingQueue().sync([] {});
  }

  // The first column of a query's rows, as another connection sees them now.
  std::vector<std::string> read(const std::string& query) {
    std::vector<std::string> rows;
    sqlite3* reader = nullptr;
    sqlite3_open_v2(path.c_str(), &reader, SQLITE_OPEN_READONLY, nullptr);
    const auto add = [](void* list, int, char** values, char**) {
      static_cast<std::vector<std::string>*>(list)->emplace_back(values[0] == nullptr ? "null" : values[0]);
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(reader, query.c_str(), add, &rows, nullptr), SQLITE_OK);
    sqlite3_close(reader);
    return rows;
  }
  std::vector<std::string> messages() { return read("SELECT message FROM logs ORDER BY rowid"); }

  platform::fake::FakePlatform fake;
  tests::TemporaryFolder folder;
  const std::string path = folder.path("log.sqlite");
  std::shared_ptr<SQLiteLogger> logger = SQLiteLogger::open(path);
};

}  // namespace

TEST_F(SQLite, ABatchAppearsAtOnceAndNotBefore) {
  log("one");
  log("two");
  EXPECT_THAT(messages(), IsEmpty());
  DDLog::flushLog();
  EXPECT_THAT(messages(), ElementsAre("one", "two"));
}

TEST_F(SQLite, ARowHoldsTheRecord) {
  log("it's 100%");
  DDLog::flushLog();
  EXPECT_THAT(
      read(
          "SELECT level||','||flag||','||context||','||queue||','||file||','||function||','||line||','||message FROM logs"),
      ElementsAre("3,2,9,com.apple.main-thread,Thing,do:it:,7,it's 100%"));
  EXPECT_THAT(read("SELECT CAST(timestamp AS INTEGER) FROM logs"), ElementsAre("1700000000"));
}

TEST_F(SQLite, OldEntriesGoByAge) {
  logger->setMaxAge(100);
  log("old");
  DDLog::flushLog();
  fake.clock.advance(Seconds(90));
  log("new");
  DDLog::flushLog();
  fake.clock.advance(Seconds(20));
  logger->deleteOldLogEntries();
  logger->loggerQueue()->sync([] {});
  EXPECT_THAT(messages(), ElementsAre("new"));
}

TEST_F(SQLite, EverySaveDeletesWhenAskedTo) {
  logger->setMaxAge(100);
  logger->setDeleteOnEverySave(true);
  log("old");
  DDLog::flushLog();
  fake.clock.advance(Seconds(200));
  log("new");
  DDLog::flushLog();
  EXPECT_THAT(messages(), ElementsAre("new"));
}

TEST_F(SQLite, AReaderInTheMiddleDoesNotHoldUpTheWriter) {
  log("one");
  DDLog::flushLog();
  sqlite3* reader = nullptr;
  sqlite3_stmt* row = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &reader), SQLITE_OK);
  ASSERT_EQ(sqlite3_prepare_v2(reader, "SELECT message FROM logs", -1, &row, nullptr), SQLITE_OK);
  ASSERT_EQ(sqlite3_step(row), SQLITE_ROW);
  log("two");
  DDLog::flushLog();
  EXPECT_THAT(messages(), ElementsAre("one", "two"));
  sqlite3_finalize(row);
  sqlite3_close(reader);
}

TEST_F(SQLite, ABatchThatCouldNotBeCommittedIsCommittedLater) {
  ASSERT_TRUE(logger);
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  log("patient");
  DDLog::flushLog();
  EXPECT_THAT(messages(), IsEmpty());
  ASSERT_EQ(sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(other);
  log("next");
  DDLog::flushLog();
  EXPECT_THAT(messages(), ElementsAre("patient", "next"));
}

TEST(SQLiteWithoutAPlace, IsNotMade) { EXPECT_EQ(SQLiteLogger::open("/nowhere/at/all.sqlite"), nullptr); }
