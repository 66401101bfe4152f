#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/DDASLLogger.h"
#include "logging/DDJournalLogger.h"
#include "logging/DDLog.h"
#include "logging/DDTTYLogger.h"
#include "logging/LogSite.h"
#include "platform/fake/FakePlatform.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

class Bracketing : public DDLogFormatter {
 public:
  std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) override {
    buffer = "<" + std::string(message.logMsg()) + ">";
    return buffer;
  }
};

class Echoing : public DDLogFormatter {
 public:
  std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) override {
    if (!returnsACopy) return message.logMsg();
    buffer = message.logMsg();
    return buffer;
  }
  bool returnsACopy = false;
};

class Dropping : public DDLogFormatter {
 public:
  std::optional<std::string_view> formatLogMessage(const DDLogMessage&, std::string&) override { return std::nullopt; }
};

void log(std::string_view text, int level = 3) {
  DDLog::log_level_flag_context_file_function_line_format(false, level, 1, 0, "f.mm", "f", 1, "%@", text);
}

class Terminal : public testing::Test {
 protected:
  Terminal() { fake.logging.standardError.isOne = true; }
  void add(std::shared_ptr<DDLogFormatter> formatter = nullptr) {
    DDLog::addLogger(DDTTYLogger::sharedInstance());
    DDTTYLogger::sharedInstance()->setLogFormatter(std::move(formatter));
  }
  std::string prefix() {
    const std::string time = foundation::DateFormatter("yyyy-MM-dd HH:mm:ss:SSS").stringFromDate(fake.clock.now());
    return time + " Installer[4711:" + foundation::formatted("%x", fake.logging.process.currentThreadIdentifier()) + "] ";
  }

  platform::fake::FakePlatform fake;
};

class Journal : public testing::Test {
 protected:
  Journal() { DDLog::addLogger(DDJournalLogger::sharedInstance()); }
  platform::fake::FakePlatform fake;
};

class GradedLog : public testing::Test {
 protected:
  GradedLog() { DDLog::addLogger(DDASLLogger::sharedInstance()); }
  platform::fake::FakePlatform fake;
};

}  // namespace

TEST_F(Terminal, ALineIsOneWriteOfTenPieces) {
  add();
  log("the text");
  ASSERT_EQ(fake.logging.standardError.writes().size(), 1);
  EXPECT_EQ(fake.logging.standardError.writes()[0].size(), 10);
  EXPECT_EQ(fake.logging.standardError.text(), prefix() + "the text\n");
}

TEST_F(Terminal, WithStandardErrorElsewhereNothingIsWritten) {
  fake.logging.standardError.isOne = false;
  add();
  log("the text");
  EXPECT_THAT(fake.logging.standardError.writes(), IsEmpty());
}

TEST_F(Terminal, ALineFeedFollowsEvenALineFeed) {
  add();
  log("line\n");
  EXPECT_EQ(fake.logging.standardError.text(), prefix() + "line\n\n");
}

TEST_F(Terminal, IsNotCommandedByAMessageThatMayHaveLines) {
  add();
  log("\x1B[2Jone\n\ttwo");
  EXPECT_TRUE(fake.logging.standardError.text().ends_with("] \\x1b[2Jone\n\ttwo\n"));
}

TEST_F(Terminal, AFormattersTextStandsAlone) {
  add(std::make_shared<Bracketing>());
  log("the text");
  EXPECT_THAT(fake.logging.standardError.writes(), ElementsAre(ElementsAre("<the text>", "\n")));
}

TEST_F(Terminal, TheRecordsOwnTextFromAFormatterGetsTheStandardLine) {
  add(std::make_shared<Echoing>());
  log("the text");
  EXPECT_EQ(fake.logging.standardError.text(), prefix() + "the text\n");
}

TEST_F(Terminal, AnEqualTextThatAFormatterMadeStandsAlone) {
  const auto formatter = std::make_shared<Echoing>();
  formatter->returnsACopy = true;
  add(formatter);
  log("the text");
  EXPECT_EQ(fake.logging.standardError.text(), "the text\n");
}

TEST_F(Terminal, ADroppedRecordIsNotWritten) {
  add(std::make_shared<Dropping>());
  log("the text");
  EXPECT_THAT(fake.logging.standardError.writes(), IsEmpty());
}

TEST_F(Terminal, APercentSignIsJustThat) {
  add();
  log("100%d %s %n");
  EXPECT_EQ(fake.logging.standardError.text(), prefix() + "100%d %s %n\n");
}

TEST_F(Terminal, ThereIsOneLogger) {
  EXPECT_EQ(DDTTYLogger::sharedInstance(), DDTTYLogger::sharedInstance());
  EXPECT_FALSE(std::is_default_constructible_v<DDTTYLogger>);
  EXPECT_EQ(DDTTYLogger::sharedInstance()->loggerQueue()->label(), "cocoa.plamaiskre.ttyLogger");
}

TEST_F(GradedLog, ThereIsOneLoggerWithOneConnection) {
  EXPECT_EQ(DDASLLogger::sharedInstance(), DDASLLogger::sharedInstance());
  EXPECT_FALSE(std::is_default_constructible_v<DDASLLogger>);
  EXPECT_THAT(fake.logging.leveledSystemLog.facilities(), ElementsAre("com.apple.console"));
  EXPECT_EQ(DDASLLogger::sharedInstance()->loggerQueue()->label(), "cocoa.plamaiskre.aslLogger");
}

TEST_F(GradedLog, LevelsBecomeTheSystemsLevels) {
  for (const int level : {0, 1, 2, 3, 4, 7, -1}) log("text", level);
  std::vector<int> levels;
  for (const auto& line : fake.logging.leveledSystemLog.lines()) levels.push_back(line.first);
  EXPECT_THAT(levels, ElementsAre(5, 2, 3, 4, 5, 5, 5));
}

TEST_F(GradedLog, APercentSignIsJustThat) {
  log("100%d %s %n");
  EXPECT_THAT(fake.logging.leveledSystemLog.lines(), ElementsAre(Pair(4, "100%d %s %n")));
}

TEST_F(GradedLog, AFormattersTextIsLoggedAndADroppedRecordIsNot) {
  DDASLLogger::sharedInstance()->setLogFormatter(std::make_shared<Bracketing>());
  log("one");
  DDASLLogger::sharedInstance()->setLogFormatter(std::make_shared<Dropping>());
  log("two");
  EXPECT_THAT(fake.logging.leveledSystemLog.lines(), ElementsAre(Pair(4, "<one>")));
}

TEST_F(Terminal, ShowsErrorsAndWarningsInColorsWhereThatIsWanted) {
  add();
  DDTTYLogger::sharedInstance()->setColorsEnabled(true);
  const DDLogSite site{DDLogFlagError | DDLogFlagWarning | DDLogFlagInfo};
  site.info("plain");
  site.warning("yellow");
  site.error("red");
  DDTTYLogger::sharedInstance()->setColorsEnabled(false);
  site.error("plain");
  EXPECT_EQ(fake.logging.standardError.text(), prefix() + "plain\n" + "\x1b[33m" + prefix() + "yellow\x1b[0m\n" +
                                                   "\x1b[31m" + prefix() + "red\x1b[0m\n" + prefix() + "plain\n");
}

TEST_F(Terminal, ShowsAFormattersLineInColorsToo) {
  add(std::make_shared<Bracketing>());
  DDTTYLogger::sharedInstance()->setColorsEnabled(true);
  log("red");
  EXPECT_EQ(fake.logging.standardError.text(), "\x1b[31m<red>\x1b[0m\n");
}

TEST_F(Journal, HasThePartsOfARecordAsFields) {
  foundation::Dispatch::SerialQueue::make("saving")->sync([] {
    DDLog::log_level_flag_context_file_function_line_format(false, 3, DDLogFlagWarning, 7, "Save.cpp", "save", 12,
                                                            "%d of %d", 1, 2);
  });
  const std::string thread = std::to_string(fake.logging.process.currentThreadIdentifier());
  ASSERT_EQ(fake.logging.journal.entries().size(), 1);
  EXPECT_THAT(fake.logging.journal.entries()[0],
              ElementsAre("MESSAGE=1 of 2", "PRIORITY=4", "SYSLOG_IDENTIFIER=Installer", "TID=" + thread,
                          "CODE_FILE=Save.cpp", "CODE_LINE=12", "CODE_FUNC=save", "KELTO_QUEUE=saving", "KELTO_CONTEXT=7"));
}

TEST_F(Journal, HasTheFieldsOfAStatementUnderNamesThatItTakes) {
  const DDLogSite site{DDLogFlagError | DDLogFlagInfo};
  site.error(LogFields{{"user", "Anna"}, {"Disk free", 3}, {"priority", 0}, {"_uid", 0}, {"2nd", 2}, {"", ""}}, "text");
  ASSERT_EQ(fake.logging.journal.entries().size(), 1);
  const auto entry = fake.logging.journal.entries()[0];
  const auto own = std::ranges::find(entry, "USER=Anna");
  EXPECT_THAT(std::vector(own, entry.end()),
              ElementsAre("USER=Anna", "DISK_FREE=3", "FIELD_PRIORITY=0", "FIELD__UID=0", "FIELD_2ND=2", "FIELD_="));
  EXPECT_EQ(std::ranges::count(entry, "PRIORITY=3"), 1);
}

TEST_F(Journal, ThatTakesNothingIsReportedOncePerTimeOfTrouble) {
  fake.logging.journal.isMissing = true;
  log("one");
  log("two");
  fake.logging.journal.isMissing = false;
  log("three");
  EXPECT_EQ(fake.logging.journal.entries().size(), 1);
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("DDJournalLogger: the journal does not take records"));
}
