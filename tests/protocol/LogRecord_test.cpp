#include "protocol/LogRecord.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using protocol::LogPriority;
using protocol::LogRecord;

TEST(LogRecordTest, HasALineForEachFieldInTheJournal) {
  const LogRecord record{.program = "tool",
                         .process = 12,
                         .priority = LogPriority::warning,
                         .line = "refused",
                         .fields = {{"ITS_CAUSE", "two\nlines"}, {"ITS_PATH", "/a"}}};
  EXPECT_EQ(protocol::journalDatagram(record),
            "MESSAGE=refused\nPRIORITY=4\nSYSLOG_FACILITY=10\nSYSLOG_IDENTIFIER=tool\nSYSLOG_PID=12\n"
            "ITS_CAUSE=two?lines\nITS_PATH=/a\n");
}

TEST(LogRecordTest, NamesTheProgramAndItsProcessForTheLogDaemon) {
  const LogRecord record{.program = "tool", .process = 12, .priority = LogPriority::notice, .line = "done", .fields = {}};
  EXPECT_THAT(protocol::logDatagram(record), testing::MatchesRegex("<85>... .. ..:..:.. tool\\[12\\]: done"));
}

TEST(LogRecordTest, TextOfACallerBecomesOneShortPrintableLine) {
  EXPECT_EQ(protocol::printable("a\nb\x7f\xc3"), "a?b??");
  EXPECT_EQ(protocol::printable(std::string(300, 'x')), std::string(200, 'x') + "...");
}

}  // namespace
