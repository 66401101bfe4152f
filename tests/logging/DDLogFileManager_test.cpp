#include "logging/DDLogFileManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "logging/DDLog.h"
#include "platform/fake/FakePlatform.h"

using foundation::Seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::UnorderedElementsAre;

namespace {

const std::string folder = "/logs";
const std::string archived = "plamaiskre.log.archived";

class Manager : public testing::Test {
 protected:
  // Ages in seconds; the oldest files have the highest.
  void addFile(const std::string& name, double age, bool isArchived = true) {
    files().addFile(folder + "/" + name, "x", foundation::dateByAdding(fake.clock.now(), Seconds(-age)));
    if (isArchived) files().setMark(folder + "/" + name, archived);
  }
  platform::fake::FakeLogStorage& files() { return fake.logging.storage; }
  static void settle() {
    DDLog::loggingQueue().sync([] {});
  }

  platform::fake::FakePlatform fake;
  std::shared_ptr<DDLogFileManagerDefault> manager = std::make_shared<DDLogFileManagerDefault>(fake.platform, folder);
};

}  // namespace

TEST_F(Manager, TheDefaultFolderIsInTheUsersLibrary) {
  using platform::SearchPathDirectory;
  fake.files.searchPaths[{SearchPathDirectory::library, platform::NSUserDomainMask}] = {"/home/me/Library"};
  EXPECT_EQ(DDLogFileManagerDefault(fake.platform).logsDirectory(), "/home/me/Library/Logs/Installer");
}

TEST_F(Manager, WithoutALibraryTheTemporaryFolderServes) {
  EXPECT_EQ(DDLogFileManagerDefault(fake.platform).logsDirectory(), "/tmp/Logs/Installer");
}

TEST_F(Manager, TheFolderIsMadeWheneverItIsAskedForAndMissing) {
  EXPECT_FALSE(files().fileExists(folder));
  EXPECT_EQ(manager->logsDirectory(), folder);
  EXPECT_TRUE(files().fileExists(folder));
}

TEST_F(Manager, AFolderThatCannotBeMadeIsReportedAndAnswered) {
  files().createDirectoryError = EACCES;
  EXPECT_EQ(manager->logsDirectory(), folder);
  EXPECT_THAT(fake.systemLog.lines,
              ElementsAre("DDFileLogManagerDefault: Error creating logsDirectory: No room for a folder"));
}

TEST(LogFileNames, AreRecognisedBySixUpperCaseDigits) {
  EXPECT_TRUE(DDLogFileManagerDefault::isLogFile("log-0A1B2C.txt"));
  EXPECT_TRUE(DDLogFileManagerDefault::isLogFile("log-0A1B2C.anything"));
  EXPECT_TRUE(DDLogFileManagerDefault::isLogFile("log-0A1B2C"));
  EXPECT_FALSE(DDLogFileManagerDefault::isLogFile("log-abcdef.txt"));
  EXPECT_FALSE(DDLogFileManagerDefault::isLogFile("log-0A1B2"));
  EXPECT_FALSE(DDLogFileManagerDefault::isLogFile("log-0A1B2G.txt"));
  EXPECT_FALSE(DDLogFileManagerDefault::isLogFile("Log-0A1B2C.txt"));
  EXPECT_FALSE(DDLogFileManagerDefault::isLogFile("xlog-0A1B2C.txt"));
}

TEST(LogFileNames, AreShortAndRandom) {
  std::set<std::string> names;
  for (int i = 0; i < 100; ++i) {
    const auto name = DDLogFileManagerDefault::generateShortUUID();
    EXPECT_EQ(name.size(), 6);
    EXPECT_TRUE(DDLogFileManagerDefault::isLogFile("log-" + name));
    names.insert(name);
  }
  EXPECT_GT(names.size(), 95);
}

TEST_F(Manager, ListsTheLogFilesAmongTheEntries) {
  addFile("log-AAAAAA.txt", 1);
  addFile("log-BBBBBB.gz", 2);
  addFile("notes.txt", 3);
  EXPECT_THAT(manager->unsortedLogFilePaths(), UnorderedElementsAre("/logs/log-AAAAAA.txt", "/logs/log-BBBBBB.gz"));
  EXPECT_THAT(manager->unsortedLogFileNames(), UnorderedElementsAre("log-AAAAAA.txt", "log-BBBBBB.gz"));
  EXPECT_EQ(manager->unsortedLogFileInfos().size(), 2);
}

TEST_F(Manager, SortsTheNewestFirst) {
  addFile("log-AAAAAA.txt", 20);
  addFile("log-BBBBBB.txt", 10);
  addFile("log-CCCCCC.txt", 30);
  EXPECT_THAT(manager->sortedLogFileNames(), ElementsAre("log-BBBBBB.txt", "log-AAAAAA.txt", "log-CCCCCC.txt"));
  EXPECT_EQ(manager->sortedLogFilePaths()[0], "/logs/log-BBBBBB.txt");
  EXPECT_EQ(manager->sortedLogFileInfos()[2]->fileName(), "log-CCCCCC.txt");
}

TEST_F(Manager, OfFilesOfTheSameInstantTheOneInUseComesFirst) {
  addFile("log-AAAAAA.txt", 10);
  addFile("log-BBBBBB.txt", 10, false);
  EXPECT_THAT(manager->sortedLogFileNames(), ElementsAre("log-BBBBBB.txt", "log-AAAAAA.txt"));
}

TEST_F(Manager, TheFileInUseIsNeitherCountedNorDeleted) {
  addFile("log-AAAAAA.txt", 10, false);
  addFile("log-BBBBBB.txt", 20);
  addFile("log-CCCCCC.txt", 30);
  addFile("log-DDDDDD.txt", 40);
  manager->setMaximumNumberOfLogFiles(2);
  settle();
  EXPECT_THAT(manager->sortedLogFileNames(), ElementsAre("log-AAAAAA.txt", "log-BBBBBB.txt", "log-CCCCCC.txt"));
}

TEST_F(Manager, AMaximumOfZeroDeletesEveryArchivedFileAndNotTheNewestUnarchived) {
  addFile("log-AAAAAA.txt", 10, false);
  addFile("log-BBBBBB.txt", 20);
  addFile("log-CCCCCC.txt", 30);
  manager->setMaximumNumberOfLogFiles(0);
  settle();
  EXPECT_THAT(manager->sortedLogFileNames(), ElementsAre("log-AAAAAA.txt"));
}

TEST_F(Manager, TheSameMaximumPrunesNothingAndASmallerOneAtOnce) {
  for (const char c : {'A', 'B', 'C', 'D', 'E', 'F'}) addFile("log-" + std::string(6, c), c);
  manager->setMaximumNumberOfLogFiles(5);
  settle();
  EXPECT_EQ(manager->unsortedLogFileNames().size(), 6);
  manager->setMaximumNumberOfLogFiles(4);
  settle();
  EXPECT_EQ(manager->unsortedLogFileNames().size(), 4);
}

TEST_F(Manager, AFailedDeletionIsPassedOver) {
  addFile("log-AAAAAA.txt", 10);
  files().refusesToRemove = true;
  manager->setMaximumNumberOfLogFiles(0);
  settle();
  EXPECT_EQ(manager->unsortedLogFileNames().size(), 1);
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
}

TEST_F(Manager, ANewFileIsEmptyAndPrunes) {
  for (const char c : {'A', 'B', 'C', 'D', 'E', 'F'}) addFile("log-" + std::string(6, c), c);
  const std::string path = manager->createNewLogFile();
  EXPECT_EQ(files().contents(path), "");
  EXPECT_EQ(manager->sortedLogFilePaths().size(), 6);
  EXPECT_EQ(manager->sortedLogFilePaths()[0], path);
}

// One file.

TEST_F(Manager, AFilesFactsAreReadOnceAndTheSizeOfAnEmptyOneEveryTime) {
  files().addFile("/logs/log-AAAAAA.txt");
  DDLogFileInfo info(fake.platform, "/logs/log-AAAAAA.txt");
  EXPECT_EQ(info.fileSize(), 0);
  EXPECT_EQ(info.fileAttributes()->size, 0);
  files().addFile("/logs/log-AAAAAA.txt", "four");
  EXPECT_EQ(info.fileSize(), 4);
  EXPECT_EQ(info.fileAttributes()->size, 0);
  files().addFile("/logs/log-AAAAAA.txt", "and more");
  EXPECT_EQ(info.fileSize(), 4);
  info.reset();
  EXPECT_EQ(info.fileAttributes()->size, 8);
  EXPECT_EQ(info.fileSize(), 4);
}

TEST_F(Manager, AFilesAgeCountsFromItsCreation) {
  addFile("log-AAAAAA.txt", 50);
  DDLogFileInfo info(fake.platform, "/logs/log-AAAAAA.txt");
  EXPECT_EQ(info.age(), Seconds(50));
  fake.clock.advance(Seconds(5));
  EXPECT_EQ(info.age(), Seconds(55));
  EXPECT_EQ(info.creationDate(), info.modificationDate());
  EXPECT_EQ(DDLogFileInfo(fake.platform, "/logs/none").fileAttributes(), std::nullopt);
}

TEST_F(Manager, TheArchivedMarkComesAndGoes) {
  addFile("log-AAAAAA.txt", 1, false);
  DDLogFileInfo info(fake.platform, "/logs/log-AAAAAA.txt");
  EXPECT_FALSE(info.isArchived());
  info.setIsArchived(true);
  EXPECT_TRUE(info.isArchived());
  info.setIsArchived(false);
  EXPECT_FALSE(info.isArchived());
  info.setIsArchived(false);
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
}

TEST_F(Manager, AMarkThatCannotBeSetOrRemovedIsReported) {
  addFile("log-AAAAAA.txt", 1, false);
  files().markError = EIO;
  DDLogFileInfo info(fake.platform, "/logs/log-AAAAAA.txt");
  info.setIsArchived(true);
  info.setIsArchived(false);
  EXPECT_THAT(fake.systemLog.lines,
              ElementsAre("DDLogFileInfo: setxattr(plamaiskre.log.archived, log-AAAAAA.txt): error = -1",
                          "DDLogFileInfo: removexattr(plamaiskre.log.archived, log-AAAAAA.txt): error = -1"));
}

TEST_F(Manager, RenamingMovesTheFileAndForgetsItsFactsButNotItsSize) {
  addFile("log-AAAAAA.txt", 1);
  DDLogFileInfo info(fake.platform, "/logs/log-AAAAAA.txt");
  EXPECT_EQ(info.fileSize(), 1);
  info.renameFile("log-BBBBBB.old");
  EXPECT_EQ(info.filePath(), "/logs/log-BBBBBB.old");
  EXPECT_EQ(info.fileName(), "log-BBBBBB.old");
  EXPECT_TRUE(info.isArchived());
  EXPECT_EQ(info.fileSize(), 1);
  EXPECT_THAT(files().paths(), ElementsAre("/logs/log-BBBBBB.old"));
}

TEST_F(Manager, RenamingToTheSameNameDoesNothing) {
  files().moveError = EIO;
  DDLogFileInfo info(fake.platform, "/logs/log-AAAAAA.txt");
  info.renameFile("log-AAAAAA.txt");
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
}

TEST_F(Manager, AFailedRenamingIsReportedAndTheInfoTakesTheNewNameAllTheSame) {
  addFile("log-AAAAAA.txt", 1);
  files().moveError = EIO;
  DDLogFileInfo info(fake.platform, "/logs/log-AAAAAA.txt");
  info.renameFile("other");
  EXPECT_EQ(info.filePath(), "/logs/other");
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("DDLogFileInfo: Error renaming file (log-AAAAAA.txt): The file stays"));
}

TEST_F(Manager, FilesAreEqualByPathAndOrderedByDateLatestFirst) {
  addFile("log-AAAAAA.txt", 10);
  addFile("log-BBBBBB.txt", 20);
  DDLogFileInfo newer(fake.platform, "/logs/log-AAAAAA.txt");
  DDLogFileInfo older(fake.platform, "/logs/log-BBBBBB.txt");
  EXPECT_TRUE(newer == DDLogFileInfo(fake.platform, "/logs/log-AAAAAA.txt"));
  EXPECT_FALSE(newer == older);
  EXPECT_LT(newer.reverseCompareByCreationDate(older), 0);
  EXPECT_GT(older.reverseCompareByCreationDate(newer), 0);
  EXPECT_EQ(older.reverseCompareByCreationDate(older), 0);
  EXPECT_LT(newer.reverseCompareByModificationDate(older), 0);
}

TEST_F(Manager, AFilesDescriptionNamesItsFactsInOrder) {
  addFile("log-AAAAAA.txt", 1);
  EXPECT_THAT(
      DDLogFileInfo(fake.platform, "/logs/log-AAAAAA.txt").description(),
      MatchesRegex("\\{filePath = /logs/log-AAAAAA.txt; fileName = log-AAAAAA.txt; fileAttributes = .*; creationDate = "
                   ".*; modificationDate = .*; fileSize = 1; age = 1.000; isArchived = YES\\}"));
}
