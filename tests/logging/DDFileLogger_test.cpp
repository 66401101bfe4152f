#include "logging/DDFileLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logging/DDLog.h"
#include "platform/fake/FakePlatform.h"
#include "tests/support/Eventually.h"

using foundation::Seconds;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

namespace {

const std::string folder = "/Library/Logs/Installer";
const std::string archived = "plamaiskre.log.archived";

// Notes what the logger tells it.
class NotingManager : public DDLogFileManagerDefault {
 public:
  explicit NotingManager(platform::Platform& platform) : DDLogFileManagerDefault(platform, folder) {}
  void didArchiveLogFile(const std::string& path) override { notes.push_back("archived " + path); }
  void didRollAndArchiveLogFile(const std::string& path) override {
    notes.push_back("rolled " + path);
    if (onRoll) onRoll();
  }
  std::vector<std::string> notes;
  std::function<void()> onRoll;
};

class Files : public testing::Test {
 protected:
  platform::fake::FakeLogStorage& files() { return fake.logging.storage; }

  std::shared_ptr<DDFileLogger> start() {
    manager = std::make_shared<NotingManager>(fake.platform);
    auto made = std::make_shared<DDFileLogger>(fake.platform, manager);
    DDLog::addLogger(made);
    return made;
  }
  // As a new process would find things.
  void restart() {
    DDLog::removeAllLoggers();
    DDLog::flushLog();
    logger.reset();
    logger = start();
  }
  static void log(std::string_view text) {
    DDLog::log_level_flag_context_file_function_line_format(false, 3, 1, 0, "f.mm", "f", 1, "%@", text);
  }
  void pass(double seconds) {
    fake.clock.advance(Seconds(seconds));
    logger->loggerQueue()->sync([] {});
  }
  // As if the moment had passed after which rolled files are on the medium.
  void finishRolls() { logger->willEnd(); }
  std::string stamp() {
    return foundation::DateFormatter("yyyy/MM/dd HH:mm:ss:SSS").stringFromDate(fake.clock.now()) + "  ";
  }
  std::string onlyContents() {
    const auto paths = files().paths();
    return paths.size() == 1 ? files().contents(paths[0]).value_or("") : "there are " + std::to_string(paths.size());
  }

  platform::fake::FakePlatform fake;
  std::shared_ptr<NotingManager> manager;
  std::shared_ptr<DDFileLogger> logger = start();
};

}  // namespace

TEST_F(Files, TheFirstRecordMakesAFileAndALine) {
  log("the message");
  ASSERT_THAT(files().paths(), SizeIs(1));
  EXPECT_THAT(files().paths()[0], MatchesRegex(folder + "/log-[0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F][0-9A-F]\\.txt"));
  EXPECT_EQ(onlyContents(), stamp() + "the message\n");
  EXPECT_THAT(onlyContents(),
              MatchesRegex("[0-9]+/[0-9][0-9]/[0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9]:000  the message\n"));
}

TEST_F(Files, HaveTheDefaults) {
  EXPECT_EQ(logger->maximumFileSize(), 1048576);
  EXPECT_EQ(logger->rollingFrequency(), 86400.0);
  EXPECT_EQ(manager->maximumNumberOfLogFiles(), 5);
  EXPECT_EQ(logger->loggerQueue()->label(), "cocoa.plamaiskre.fileLogger");
}

TEST_F(Files, ALineFeedIsAddedOnlyWhereThereIsNone) {
  log("one\n");
  log("two");
  EXPECT_EQ(onlyContents(), stamp() + "one\n" + stamp() + "two\n");
}

TEST_F(Files, ADroppedRecordIsNotWritten) {
  class Dropping : public DDLogFormatter {
   public:
    std::optional<std::string_view> formatLogMessage(const DDLogMessage&, std::string&) override { return std::nullopt; }
  };
  logger->setLogFormatter(std::make_shared<Dropping>());
  log("unwanted");
  EXPECT_THAT(files().paths(), IsEmpty());
}

TEST_F(Files, WithoutAFormatterTheTextStandsAlone) {
  logger->setLogFormatter(nullptr);
  log("bare");
  EXPECT_EQ(onlyContents(), "bare\n");
}

TEST_F(Files, AsynchronousRecordsAreOnFileAfterAFlush) {
  for (int i = 0; i < 3000; ++i)
    DDLog::log_level_flag_context_file_function_line_format(true, 3, 2, 0, "f.mm", "f", 1, "%d", i);
  DDLog::flushLog();
  std::string expected;
  for (int i = 0; i < 3000; ++i) expected += stamp() + std::to_string(i) + "\n";
  EXPECT_EQ(onlyContents(), expected);
}

TEST_F(Files, ARestartWithinThePeriodContinuesTheFile) {
  log("before");
  const auto path = files().paths().at(0);
  fake.clock.advance(Seconds(86399));
  restart();
  log("after");
  EXPECT_THAT(files().paths(), ElementsAre(path));
  EXPECT_THAT(*files().contents(path), MatchesRegex(".*before\n.*after\n"));
}

TEST_F(Files, ARestartAfterThePeriodArchivesTheFileAndMakesAnother) {
  log("before");
  const auto path = files().paths().at(0);
  logger->setRollingFrequency(1e9);
  EXPECT_EQ(logger->rollingFrequency(), 1e9);
  fake.clock.advance(Seconds(86400));
  restart();
  log("after");
  EXPECT_THAT(files().paths(), SizeIs(2));
  EXPECT_TRUE(files().hasMark(path, archived));
  EXPECT_THAT(manager->notes, ElementsAre("archived " + path));
}

TEST_F(Files, ARestartWithALargeFileArchivesIt) {
  files().addFile(folder + "/log-ABCDEF.txt", std::string(1048576, 'x'));
  log("after");
  EXPECT_TRUE(files().hasMark(folder + "/log-ABCDEF.txt", archived));
  EXPECT_THAT(files().paths(), SizeIs(2));
}

TEST_F(Files, AnArchivedFileIsLeftAlone) {
  files().addFile(folder + "/log-ABCDEF.txt", "short\n");
  files().setMark(folder + "/log-ABCDEF.txt", archived);
  log("after");
  EXPECT_EQ(files().contents(folder + "/log-ABCDEF.txt"), "short\n");
  EXPECT_THAT(manager->notes, IsEmpty());
}

TEST_F(Files, AFileIsRolledRightAfterTheWriteThatReachedItsSize) {
  logger->setLogFormatter(nullptr);
  log(std::string(1048574, 'x'));
  EXPECT_THAT(manager->notes, IsEmpty());
  log("");
  const auto path = files().paths().at(0);
  EXPECT_EQ(files().contents(path)->size(), 1048576);
  finishRolls();
  EXPECT_THAT(manager->notes, ElementsAre("rolled " + path));
  EXPECT_TRUE(files().hasMark(path, archived));
  EXPECT_THAT(files().paths(), SizeIs(1));
  log("next");
  EXPECT_THAT(files().paths(), SizeIs(2));
}

TEST_F(Files, ASmallerMaximumRollsAtOnce) {
  log("some");
  logger->setMaximumFileSize(10);
  EXPECT_EQ(logger->maximumFileSize(), 10);
  finishRolls();
  EXPECT_THAT(manager->notes, SizeIs(1));
}

TEST_F(Files, AFileIsRolledAtItsAge) {
  log("old");
  pass(86399);
  EXPECT_THAT(manager->notes, IsEmpty());
  pass(1);
  finishRolls();
  EXPECT_THAT(manager->notes, SizeIs(1));
  log("new");
  EXPECT_THAT(files().paths(), SizeIs(2));
}

TEST_F(Files, AClockThatIsSetBackPutsTheRollOffAndForwardDoesNot) {
  log("old");
  fake.clock.setBack(Seconds(40000));
  pass(86400);
  EXPECT_THAT(manager->notes, IsEmpty());
  log("still the same");
  EXPECT_THAT(files().paths(), SizeIs(1));
  fake.clock.advanceWallClock(Seconds(40000));
  pass(3600);
  finishRolls();
  EXPECT_THAT(manager->notes, SizeIs(1));
}

TEST_F(Files, AShorterFrequencyRollsAtOnce) {
  log("old");
  pass(100);
  logger->setRollingFrequency(100);
  EXPECT_EQ(logger->rollingFrequency(), 100);
  finishRolls();
  EXPECT_THAT(manager->notes, SizeIs(1));
}

TEST_F(Files, RollingOnRequestEndsTheFileBetweenTwoRecords) {
  log("one");
  logger->rollLogFile();
  log("two");
  EXPECT_THAT(files().paths(), SizeIs(2));
  finishRolls();
  EXPECT_THAT(manager->notes, SizeIs(1));
}

TEST_F(Files, ARollSynchronisesThenMarksThenTellsTheManager) {
  log("one");
  const auto path = files().paths().at(0);
  logger->rollLogFile();
  DDLog::flushLog();
  EXPECT_FALSE(files().hasMark(path, archived));
  EXPECT_THAT(manager->notes, IsEmpty());
  manager->onRoll = [&] {
    const auto events = files().events();
    manager->notes.insert(manager->notes.begin(), events.begin(), events.end());
  };
  finishRolls();
  EXPECT_THAT(manager->notes, ElementsAre("synchronised " + path, "marked " + path, "rolled " + path));
}

TEST_F(Files, ARolledFileIsNotTakenForTheCurrentOneBeforeItsMarkIsThere) {
  log("one");
  logger->rollLogFile();
  log("two");
  EXPECT_THAT(files().paths(), SizeIs(2));
  finishRolls();
  EXPECT_THAT(manager->notes, SizeIs(1));
}

TEST_F(Files, AFileThatWasDeletedBeforeItsMarkIsNotMarkedAndTheManagerIsTold) {
  log("one");
  const auto path = files().paths().at(0);
  logger->rollLogFile();
  DDLog::flushLog();
  files().unlink(path);
  finishRolls();
  EXPECT_THAT(files().events(), IsEmpty());
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
  EXPECT_THAT(manager->notes, ElementsAre("rolled " + path));
}

TEST_F(Files, RollsWithinOneInstantNeverDeleteTheFileInUse) {
  manager->setMaximumNumberOfLogFiles(2);
  logger->setLogFormatter(nullptr);
  for (int i = 0; i < 50; ++i) {
    log(std::to_string(i));
    logger->rollLogFile();
  }
  log("last");
  EXPECT_THAT(files().paths(), SizeIs(3));
  std::vector<std::string> contents;
  for (const auto& path : files().paths()) contents.push_back(*files().contents(path));
  EXPECT_THAT(contents, testing::Contains("last\n"));
}

TEST_F(Files, AFileThatCannotBeOpenedTakesNothingAndTheNextRecordTriesAgain) {
  files().refusesToOpen = true;
  log("lost");
  EXPECT_EQ(fake.clock.pendingCount(), 0);
  files().refusesToOpen = false;
  log("found");
  EXPECT_EQ(onlyContents(), stamp() + "found\n");
}

TEST_F(Files, ADeletedFileIsReplacedAndNothingIsLost) {
  log("one");
  fake.clock.advance(Seconds(1));
  log("two");
  log("three");
  const auto path = files().paths().at(0);
  // Within one millisecond of the last look nobody notices; the next look brings the lines back.
  files().unlink(path);
  log("four");
  DDLog::flushLog();
  EXPECT_THAT(onlyContents(), MatchesRegex(".*four\n"));
}

TEST_F(Files, AFullDiskKeepsTheLinesUntilThereIsRoomAgain) {
  logger->setLogFormatter(nullptr);
  log("one");
  files().room = 2;
  log("two");
  log("three");
  EXPECT_EQ(onlyContents(), "one\ntw");
  files().room = SIZE_MAX;
  log("four");
  EXPECT_EQ(onlyContents(), "one\ntwo\nthree\nfour\n");
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("DDFileLogger: Error writing log file: No space left on device"));
}

TEST_F(Files, LinesThatARolledFileDidNotTakeAreInTheNextOneAfterAFlush) {
  logger->setLogFormatter(nullptr);
  log("one");
  files().room = 0;
  log("two");
  logger->rollLogFile();
  DDLog::flushLog();
  files().room = SIZE_MAX;
  DDLog::flushLog();
  std::vector<std::string> contents;
  for (const auto& path : files().paths()) contents.push_back(files().contents(path).value_or(""));
  EXPECT_THAT(contents, testing::UnorderedElementsAre("one\n", "two\n"));
}

TEST_F(Files, AFullDiskNeitherRollsNorPrunes) {
  logger->setLogFormatter(nullptr);
  logger->setMaximumFileSize(100);
  log("one");
  files().room = 0;
  for (int i = 0; i < 500; ++i) log("as long as it takes to fill the file many times over");
  EXPECT_THAT(files().paths(), SizeIs(1));
  EXPECT_THAT(manager->notes, IsEmpty());
}

TEST_F(Files, RecordsThatFoundNoRoomAreCounted) {
  logger->setLogFormatter(nullptr);
  log("one");
  files().room = 0;
  for (int i = 0; i < 3; ++i) log(std::string(30000, 'x'));
  files().room = SIZE_MAX;
  log("two");
  EXPECT_EQ(fake.systemLog.lines.back(), "DDFileLogger: 1 records could not be written");
  EXPECT_EQ(onlyContents().size(), 4 + 2 * 30001 + 4);
}

TEST_F(Files, RecordsThatFoundNoRoomAreCountedByAFlushThoughThereIsNone) {
  log("one");
  files().refusesToOpen = true;
  logger->rollLogFile();
  log("two");
  log("three");
  DDLog::flushLog();
  EXPECT_EQ(fake.systemLog.lines.back(), "DDFileLogger: 2 records could not be written");
  const auto said = fake.systemLog.lines.size();
  DDLog::flushLog();
  EXPECT_EQ(fake.systemLog.lines.size(), said);
}

TEST_F(Files, RecordsOfADeletedFileThatFindNoRoomAreCounted) {
  log("before");
  // At once: the watch may look after the file, and what was there then goes with it.
  logger->loggerQueue()->sync([&] {
    logger->flush();
    for (const char* text : {"one", "two", "three"})
      logger->logMessage(DDLogMessage(text, 3, DDLogFlagError, 0, "f", nullptr, 1));
    logger->writePending();
    files().unlink(files().paths().at(0));
    files().room = 0;
  });
  DDLog::flushLog();
  DDLog::removeLogger(logger);
  DDLog::flushLog();
  logger->loggerQueue()->sync([] {});
  EXPECT_THAT(fake.systemLog.lines, Contains("DDFileLogger: 3 records could not be written"));
}

TEST_F(Files, RecordsThatFoundNoRoomAreCountedWhenTheLoggerIsRemoved) {
  files().refusesToOpen = true;
  log("one");
  DDLog::removeLogger(logger);
  DDLog::flushLog();
  logger->loggerQueue()->sync([] {});
  EXPECT_EQ(fake.systemLog.lines.back(), "DDFileLogger: 1 records could not be written");
}

TEST_F(Files, RecordsThatFoundNoRoomAreNotCountedByAForkedChildAgain) {
  files().refusesToOpen = true;
  log("one");
  logger->loggerQueue()->sync([&] { logger->didFork(); });
  DDLog::flushLog();
  EXPECT_THAT(fake.systemLog.lines, Not(testing::Contains(testing::HasSubstr("could not be written"))));
}

TEST_F(Files, TheDestructorSynchronisesTheFile) {
  log("one");
  const auto path = files().paths().at(0);
  DDLog::removeAllLoggers();
  DDLog::flushLog();
  logger->loggerQueue()->sync([] {});
  logger.reset();
  EXPECT_EQ(files().synchronizeCount(path), 1);
  EXPECT_EQ(fake.clock.pendingCount(), 0);
}

TEST_F(Files, HalfALineOfAKilledProcessGetsItsEnd) {
  files().addFile(folder + "/log-ABCDEF.txt", "half a li");
  log("next");
  EXPECT_EQ(onlyContents(), "half a li\n" + stamp() + "next\n");
}

TEST_F(Files, AManagerThatThrowsAboutARolledFileIsToldAndHoldsNobodyUp) {
  manager->onRoll = [] { throw std::runtime_error("no roll"); };
  log("one");
  logger->rollLogFile();
  log("two");
  logger->rollLogFile();
  DDLog::flushLog();
  finishRolls();
  EXPECT_THAT(manager->notes, SizeIs(2));
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("DDLog: a logger or a formatter has thrown an exception: no roll"));
  for (const auto& path : files().paths()) EXPECT_TRUE(files().hasMark(path, archived));
}

TEST_F(Files, ARolledFileIsBroughtToTheMediumSoonUnlessItWasPruned) {
  log("one");
  const std::string pruned = files().paths().at(0);
  logger->rollLogFile();
  DDLog::flushLog();
  files().unlink(pruned);
  log("two");
  const std::string kept = files().paths().at(0);
  logger->rollLogFile();
  DDLog::flushLog();
  const auto isOnMedium = [&] {
    pass(0.2);
    return files().synchronizeCount(kept) == 1;
  };
  EXPECT_TRUE(tests::eventually(isOnMedium));
  EXPECT_EQ(files().synchronizeCount(pruned), 0);
}
