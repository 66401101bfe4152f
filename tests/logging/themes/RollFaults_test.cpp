// Faults that strike when a file is rolled or chosen, over real files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "tests/logging/ForwardingStorage.h"
#include "tests/logging/RealLog.h"

using namespace tests;
using testing::Contains;
using testing::ElementsAre;
namespace fs = std::filesystem;

namespace {

// At once: a file that is just being made in the folder does not keep it.
void takeAway(const fs::path& logs) {
  const fs::path away = logs.string() + ".away";
  fs::rename(logs, away);
  std::error_code ignored;
  while (fs::exists(away)) fs::remove_all(away, ignored);
}

// A file system on which other processes are faster: they take the first names that are tried.
class ContestedStorage final : public ForwardingStorage {
 public:
  bool createFile(const std::string& path) override {
    tried.push_back(path);
    if (tried.size() <= 3) tests::writeFile(path, "somebody else's\n");
    return ForwardingStorage::createFile(path);
  }
  std::unique_ptr<platform::LogFile> openFile(const std::string& path) override {
    if (std::exchange(removesBeforeOpening, false)) fs::remove(path);
    return ForwardingStorage::openFile(path);
  }

  std::vector<std::string> tried;
  bool removesBeforeOpening = false;
};

// Runs `work` as somebody whom permissions concern, in a process of its own; `folder` belongs to him. 0 when it succeeds.
int asOrdinaryUser(const tests::TemporaryFolder& folder, const std::string& logs, const std::function<bool()>& work) {
  ::chmod(folder.path().c_str(), 0755);
  [[maybe_unused]] const platform::Linux::LoggingHost host;  // makes forks known
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    constexpr uid_t nobody = 65534;
    fs::create_directories(logs);
    // The memory that outlives the process is beside the files.
    const std::string memory = RealLog::memoryFolder(logs);
    if (::getuid() == 0 && (::chown(logs.c_str(), nobody, nobody) != 0 || ::chown(memory.c_str(), nobody, nobody) != 0 ||
                            ::setuid(nobody) != 0))
      ::_exit(9);
    ::_exit(work() ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class RollFaults : public testing::Test {
 protected:
  const tests::TemporaryFolder folder;
  const std::string logs = folder.path("logs");
};

}  // namespace

TEST_F(RollFaults, AFolderThatBecomesReadOnlyTakesTheFileInUseToItsEndAndTheNextOnceItCan) {
  const int status = asOrdinaryUser(folder, logs, [&] {
    RealLog log(uniqueName(), logs);
    RealLog::log(false, "one");
    ::chmod(logs.c_str(), 0555);
    RealLog::log(false, "two");
    const bool isInUse = messagesIn(logs) == std::vector<std::string>{"one", "two"};
    log.logger->rollLogFile();
    RealLog::log(false, "nowhere to go");
    ::chmod(logs.c_str(), 0755);
    RealLog::log(false, "three");
    const auto messages = messagesIn(logs);
    return isInUse && std::ranges::count(messages, "three") == 1 && std::ranges::count(messages, "two") == 1;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(RollFaults, AFileThatMayNotBeWrittenTakesNothingUntilItMay) {
  const int status = asOrdinaryUser(folder, logs, [&] {
    const std::string path = logs + "/log-ABCDEF.txt";
    tests::writeFile(path, "");
    ::chmod(path.c_str(), 0444);
    RealLog log(uniqueName(), logs);
    RealLog::log(false, "refused");
    ::chmod(path.c_str(), 0644);
    RealLog::log(false, "taken");
    return messagesIn(logs) == std::vector<std::string>{"taken"};
  });
  EXPECT_EQ(status, 0);
}

TEST_F(RollFaults, AFileThatMayNoLongerBeLookedAtIsWrittenOn) {
  const int status = asOrdinaryUser(folder, logs, [&] {
    RealLog log(uniqueName(), logs);
    RealLog::log(false, "one");
    ::chmod(logs.c_str(), 0);
    DDLog::flushLog();
    RealLog::log(false, "two");
    ::chmod(logs.c_str(), 0755);
    return messagesIn(logs) == std::vector<std::string>{"one", "two"};
  });
  EXPECT_EQ(status, 0);
}

TEST_F(RollFaults, NamesThatOthersTookAreLeftToThem) {
  ContestedStorage storage;
  RealLog log(uniqueName(), logs, &storage);
  tests::writeFile(logs + "/log-000000.txt", "");
  DDLogFileInfo(log.fake.platform, logs + "/log-000000.txt").setIsArchived(true);
  RealLog::log(false, "ours");
  ASSERT_EQ(storage.tried.size(), 4);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(tests::readFile(storage.tried[i]), "somebody else's\n");
  EXPECT_TRUE(tests::readFile(storage.tried[3]).ends_with("  ours\n"));
}

TEST_F(RollFaults, AFileThatGoesBetweenItsChoiceAndItsOpeningIsReplaced) {
  ContestedStorage storage;
  RealLog log(uniqueName(), logs, &storage);
  storage.tried.assign(3, "");
  storage.removesBeforeOpening = true;
  RealLog::log(false, "one");
  EXPECT_THAT(messagesIn(logs), ElementsAre("one"));
}

TEST_F(RollFaults, SomethingElseWhereTheFolderWasIsLeftAloneAndTheFolderComesBackAfterIt) {
  RealLog log(uniqueName(), logs);
  RealLog::log(false, "before");
  // At once: the watch may look just then, and make the folder again.
  log.logger->loggerQueue()->sync([&] {
    takeAway(logs);
    tests::writeFile(logs, "not a folder");
  });
  DDLog::flushLog();
  RealLog::log(false, "nowhere to go");
  EXPECT_EQ(tests::readFile(logs), "not a folder");
  fs::remove(logs);
  RealLog::log(false, "after");
  EXPECT_THAT(messagesIn(logs), Contains("after"));
}

TEST_F(RollFaults, ALinkOrAPipeOfALogFilesNameIsNotWrittenTo) {
  RealLog log(uniqueName(), logs);
  fs::create_directories(logs);
  tests::writeFile(folder.path("victim"), "precious");
  fs::create_symlink(folder.path("victim"), logs + "/log-AAAAAA.txt");
  ASSERT_EQ(::mkfifo((logs + "/log-BBBBBB.txt").c_str(), 0600), 0);
  RealLog::log(false, "one");
  fs::remove(logs + "/log-AAAAAA.txt");
  fs::remove(logs + "/log-BBBBBB.txt");
  RealLog::log(false, "two");
  EXPECT_EQ(tests::readFile(folder.path("victim")), "precious");
  EXPECT_THAT(messagesIn(logs), Contains("two"));
}

TEST_F(RollFaults, AFileThatSomebodyEmptiesIsWrittenOnFromItsNewEnd) {
  RealLog log(uniqueName(), logs);
  RealLog::log(false, "before");
  const std::string path = log.manager->sortedLogFilePaths().at(0);
  fs::resize_file(path, 0);
  RealLog::log(false, "after");
  EXPECT_THAT(messagesIn(logs), ElementsAre("after"));
  EXPECT_EQ(tests::readFile(path).find('\0'), std::string::npos);
}

TEST_F(RollFaults, LinesThatWaitAreNotGluedToTheHalfLineOfAnotherProcess) {
  SmallDisk disk;
  RealLog log(uniqueName(), logs, &disk);
  RealLog::log(false, "one");
  disk.room = 0;
  RealLog::log(false, "two");
  const std::string torn = logs + "/log-ABCDEF.txt";
  // At once: the watch may look just then, and make another file.
  log.logger->loggerQueue()->sync([&] {
    fs::remove(log.manager->sortedLogFilePaths().at(0));
    tests::writeFile(torn, "half a li");
    disk.room = SIZE_MAX;
  });
  DDLog::flushLog();
  // The first goes with its file if the watch has seen it there.
  EXPECT_THAT(tests::readFile(torn), testing::MatchesRegex("half a li\n([^\n]*  one\n)?[^\n]*  two\n"));
}

TEST_F(RollFaults, EachFaultIsFollowedByTheNextRecordOnFile) {
  RealLog log(uniqueName(), logs);
  int number = 0;
  const auto expectNext = [&](const std::string& fault, const std::string& otherFolder = "") {
    const std::string text = "after " + fault + " " + std::to_string(++number);
    RealLog::log(number % 2 == 0, text);
    DDLog::flushLog();
    // A file that was only moved may still have got it.
    const auto elsewhere = otherFolder.empty() ? std::vector<std::string>() : messagesIn(otherFolder);
    EXPECT_EQ(std::ranges::count(messagesIn(logs), text) + std::ranges::count(elsewhere, text), 1) << fault;
  };
  const auto current = [&] { return log.manager->sortedLogFilePaths().at(0); };
  for (int round = 0; round < 3; ++round) {
    expectNext("nothing");
    fs::remove(current());
    expectNext("deletion");
    fs::rename(current(), logs + "/log-ABCDE" + std::to_string(round) + ".old");
    expectNext("renaming");
    const std::string path = current();
    fs::remove(path);
    tests::writeFile(path, "somebody else's\n");
    expectNext("replacement");
    takeAway(logs);
    expectNext("loss of the folder");
    const std::string moved = folder.path("moved" + std::to_string(round));
    fs::rename(logs, moved);
    expectNext("renaming of the folder", moved);
  }
}
