#include "platform/linux/LogTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/PostgreSQLServer.h"

using platform::LogRow;
using Outcome = platform::LogTable::Outcome;

namespace {

void keepsEveryTextThatAServerCanKeep(tests::PostgreSQLServer& server) {
  platform::Linux::LogTable table(
      {.server = server.address(), .table = "odd \"table\"'s", .machine = "a\tb", .process = "\\N"});
  const std::string before = "tab\t, line\nreturn\r, \\backslash\\N, 'quote\"";
  const std::string after = "d\xC3\xA9j\xC3\xA0";
  const std::vector<LogRow> rows{
      {.number = 1,
       .time = foundation::Date(std::chrono::microseconds(1'700'000'000'123'456)),
       .text = before + std::string(1, '\0') + after},
      {.number = 2, .time = {}, .file = "", .line = -1, .text = "\xFF", .fields = R"({"a":"\u0000 \\ \n"})"},
      {.number = 3, .time = foundation::Date(std::chrono::microseconds(-1)), .text = "\\."}};
  std::string cause;
  EXPECT_EQ(table.add(rows, cause), Outcome::stored) << cause;
  const auto read = [&](const std::string& columns, int number) {
    return server.query("SELECT " + columns + " FROM \"odd \"\"table\"\"'s\" WHERE number = " + std::to_string(number));
  };
  EXPECT_EQ(read("message", 1), before + "\xEF\xBF\xBD" + after);
  EXPECT_EQ(read("extract(epoch FROM time)", 1), "1700000000.123456");
  EXPECT_EQ(read("machine || '|' || process || '|' || coalesce(file, 'none')", 1), "a\tb|\\N|none");
  EXPECT_EQ(read("file || '|' || line || '|' || message || '|' || fields", 2),
            "|-1|\xEF\xBF\xBD|{\"a\":\"\\u0000 \\\\ \\n\"}");
  EXPECT_EQ(read("message || extract(epoch FROM time)", 3), "\\.-0.000001");
}

void refusesRowsThatTheServerCannotTakeAndGoesOn(tests::PostgreSQLServer& server) {
  const auto table = platform::Linux::LogTable::open({.server = server.address(), .table = "refusing"});
  const std::vector<LogRow> bad{{.number = 1, .time = {}, .text = "one"},
                                {.number = 2, .time = {}, .text = "two", .fields = "not JSON"}};
  std::string cause;
  EXPECT_EQ(table->add(bad, cause), Outcome::refused);
  EXPECT_EQ(table->add(std::span(bad).first(1), cause), Outcome::stored) << cause;
  EXPECT_EQ(server.query("SELECT string_agg(message, ',') FROM refusing"), "one");
}

void failsWhereNothingMayBeWritten(tests::PostgreSQLServer& server) {
  const auto table = platform::Linux::LogTable::open(
      {.server = server.address() + " options=-cdefault_transaction_read_only=on", .table = "denied"});
  std::string cause;
  EXPECT_EQ(table->add(std::vector<LogRow>{{.number = 1, .time = {}, .text = "one"}}, cause), Outcome::failed);
  EXPECT_THAT(cause, testing::HasSubstr("read-only"));
}

}  // namespace

// A server takes its time to begin, so these share one.
TEST(PostgreSQLTable, KeepsEveryTextAndTellsARefusalFromAFailure) {
  if (!tests::PostgreSQLServer::isInstalled()) GTEST_SKIP() << "there is no PostgreSQL server";
  tests::PostgreSQLServer server;
  keepsEveryTextThatAServerCanKeep(server);
  refusesRowsThatTheServerCannotTakeAndGoesOn(server);
  failsWhereNothingMayBeWritten(server);
}
