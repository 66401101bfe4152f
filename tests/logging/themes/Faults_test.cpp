// The file logger over real files that are taken away from it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "logging/KTLogger.h"
#include "tests/logging/RealLog.h"
#include "tests/support/Eventually.h"

using namespace tests;
using testing::UnorderedElementsAre;
namespace fs = std::filesystem;

namespace {

class Faults : public testing::Test {
 protected:
  std::string currentFile() {
    const auto paths = log.manager->sortedLogFilePaths();
    return paths.empty() ? "" : paths.front();
  }

  tests::TemporaryFolder folder;
  RealLog log{uniqueName(), folder.path("logs")};
};

}  // namespace

TEST_F(Faults, RecordsAroundTheDeletionOfTheFileAreNotLost) {
  RealLog::log(false, "before");
  fs::remove(currentFile());
  // At once: nobody has looked since, and the record goes into the deleted file at first.
  RealLog::log(false, "at once");
  const auto messages = [&] { return messagesIn(folder.path("logs")); };
  EXPECT_TRUE(tests::eventually([&] { return std::ranges::count(messages(), "at once") == 1; }));
  RealLog::log(false, "after");
  EXPECT_EQ(std::ranges::count(messages(), "at once"), 1);
  EXPECT_EQ(messages().back(), "after");
}

TEST_F(Faults, ADeletedFileIsNoticedByAFlush) {
  RealLog::log(false, "before");
  fs::remove(currentFile());
  for (int i = 0; i < 100; ++i) RealLog::log(true, std::to_string(i));
  DDLog::flushLog();
  const auto messages = messagesIn(folder.path("logs"));
  for (int i = 0; i < 100; ++i) EXPECT_EQ(std::ranges::count(messages, std::to_string(i)), 1);
}

TEST_F(Faults, AReplacedFileIsLeftToWhoeverReplacedIt) {
  RealLog::log(false, "before");
  const std::string path = currentFile();
  fs::rename(path, path + ".old");
  tests::writeFile(path, "somebody else's\n");
  for (int i = 0; i < 10; ++i) RealLog::log(true, "after");
  DDLog::flushLog();
  const auto messages = messagesIn(folder.path("logs"));
  EXPECT_EQ(std::ranges::count(messages, "after"), 10);
  EXPECT_EQ(std::ranges::count(messages, "before"), 1);
}

TEST_F(Faults, AVanishedFolderIsMadeAgain) {
  RealLog::log(false, "before");
  // All at once: the watch may look just then, and make the folder again.
  log.logger->loggerQueue()->sync([&] { fs::remove_all(folder.path("logs")); });
  DDLog::flushLog();
  RealLog::log(false, "after");
  EXPECT_THAT(messagesIn(folder.path("logs")), testing::Contains("after"));
}

TEST_F(Faults, AStrangersLockOnTheFileHoldsNobodyUp) {
  RealLog::log(false, "before");
  const std::string path = currentFile();
  log.logger->loggerQueue()->sync([&] { log.logger->didFork(); });  // it lets go of the file
  const int stranger = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(stranger, LOCK_EX), 0);
  // With a lock that is waited for, this would never return.
  ::alarm(60);
  RealLog::log(false, "after");
  ::alarm(0);
  ::close(stranger);
  EXPECT_THAT(messagesIn(folder.path("logs")), testing::ElementsAre("before", "after"));
}

TEST_F(Faults, ALineFeedInAMessageForgesNoRecord) {
  RealLog::log(false, "one\n2026/01/01 00:00:00:000  forged\n");
  const std::string contents = tests::readFile(currentFile());
  EXPECT_TRUE(contents.ends_with("  one\n\t2026/01/01 00:00:00:000  forged\n")) << contents;
}

TEST_F(Faults, OddTextsArriveAsTheyAre) {
  const std::string zero("a\0b", 3);
  const std::string long1MB(1 << 20, 'x');
  const std::string invalid = "\xFF\xC3(\xED\xA0\x80";
  for (const auto& text : {zero, long1MB, invalid}) {
    RealLog::log(true, text);
    RealLog::log(false, text);
  }
  RealLog::log(false, "end");
  EXPECT_THAT(messagesIn(folder.path("logs")), UnorderedElementsAre(zero, zero, long1MB, long1MB, invalid, invalid, "end"));
}

TEST_F(Faults, ARecordIsWithTheSystemSoonAfterAnAsynchronousCall) {
  RealLog::log(true, "soon");
  EXPECT_TRUE(tests::eventually([&] { return messagesIn(folder.path("logs")).size() == 1; }));
}

TEST_F(Faults, TheArchivedMarkIsAnExtendedAttributeThatFollowsTheFile) {
  RealLog::log(false, "one");
  log.logger->rollLogFile();
  DDLog::flushLog();
  log.logger->willEnd();
  const std::string path = currentFile();
  EXPECT_TRUE(DDLogFileInfo(log.fake.platform, path).isArchived());
  fs::rename(path, path + ".renamed");
  EXPECT_TRUE(DDLogFileInfo(log.fake.platform, path + ".renamed").isArchived());
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(Faults, ManyRollsWithinASecondKeepWhatTheyShould) {
  log.manager->setMaximumNumberOfLogFiles(7);
  log.logger->setMaximumFileSize(50);
  for (int i = 0; i < 300; ++i) RealLog::log(false, "record " + std::to_string(i));
  DDLog::flushLog();
  log.manager->deleteOldLogFiles();
  EXPECT_LE(log.manager->sortedLogFilePaths().size(), 8);
  // Each file holds two records; the last of all are there.
  const auto messages = messagesIn(folder.path("logs"));
  for (int i = 290; i < 300; ++i) EXPECT_THAT(messages, testing::Contains("record " + std::to_string(i)));
}

TEST_F(Faults, AReadOnlyFolderTakesNothingAndTheNextRecordAfterwardsIsOnFile) {
  const std::string path = folder.path("logs");
  ::chmod(folder.path().c_str(), 0755);
  const pid_t child = ::fork();
  if (child == 0) {
    // Root may write anywhere; somebody else may not.
    fs::create_directories(path);
    if (::getuid() == 0 && (::chown(path.c_str(), 65534, 65534) != 0 || ::setuid(65534) != 0)) ::_exit(9);
    ::chmod(path.c_str(), 0555);
    RealLog::log(false, "refused");
    ::chmod(path.c_str(), 0755);
    RealLog::log(false, "taken");
    ::_exit(messagesIn(path) == std::vector<std::string>{"taken"} ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}
