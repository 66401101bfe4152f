// The file logger on file systems of the test's own: full ones, and one without extended attributes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>

#include "tests/logging/RealLog.h"

using namespace tests;
using testing::Contains;
using testing::Not;
namespace fs = std::filesystem;

namespace {

constexpr int noRights = 77;

// Runs `work` in a process with a mount of its own at `folder`; its result is the process's status.
int onFileSystem(const std::string& folder, const char* type, const char* options, const std::function<bool()>& work) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const bool isMounted = ::unshare(CLONE_NEWNS) == 0 &&
                           ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                           ::mount("none", folder.c_str(), type, 0, options) == 0;
    ::_exit(!isMounted ? noRights : work() ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(FileSystems, OnAFullDiskNothingIsLostThatFoundRoomAgainAndNoArchiveIsDestroyed) {
  const tests::TemporaryFolder folder;
  const int status = onFileSystem(folder.path(), "tmpfs", "size=256k", [&] {
    RealLog log(uniqueName(), folder.path("logs"));
    log.logger->setMaximumFileSize(20000);
    RealLog::log(false, "first");
    log.logger->rollLogFile();
    RealLog::log(false, "second");
    tests::writeFile(folder.path("ballast"), std::string(400000, 'x'));
    const auto files = log.manager->sortedLogFilePaths();
    for (int i = 0; i < 400; ++i) RealLog::log(i % 2 == 0, "full " + std::to_string(i));
    const bool keepsArchives = log.manager->sortedLogFilePaths() == files;
    fs::remove(folder.path("ballast"));
    RealLog::log(false, "room again");
    const auto messages = messagesIn(folder.path("logs"));
    return keepsArchives && messages.size() == 403 && std::ranges::count(messages, "room again") == 1 &&
           std::ranges::none_of(messages, [](const auto& text) { return text.starts_with("torn"); });
  });
  if (status == noRights) GTEST_SKIP() << "mounting needs root";
  EXPECT_EQ(status, 0);
}

TEST(FileSystems, WithoutExtendedAttributesTheMarkSurvivesRestartsAndFollowsTheFile) {
  const tests::TemporaryFolder folder;
  const std::string logs = folder.path("logs");
  const int status = onFileSystem(folder.path(), "ramfs", "", [&] {
    std::string path;
    {
      RealLog log(uniqueName(), logs);
      RealLog::log(false, "one");
      path = log.manager->sortedLogFilePaths().at(0);
      log.logger->rollLogFile();
      DDLog::flushLog();
    }
    fs::rename(path, logs + "/log-ABCDEF.txt");
    RealLog log(uniqueName(), logs);
    DDLogFileInfo info(log.fake.platform, logs + "/log-ABCDEF.txt");
    const bool isMarked = info.isArchived();
    RealLog::log(false, "two");
    const bool isAnother = log.manager->sortedLogFilePaths().size() == 2;
    info.setIsArchived(false);
    const bool isUnmarked = !info.isArchived();
    info.setIsArchived(true);
    log.manager->setMaximumNumberOfLogFiles(0);
    DDLog::flushLog();
    // Nothing is left of a mark whose file is deleted.
    const auto entries = std::ranges::count_if(
        fs::directory_iterator(logs), [&](const auto& entry) { return entry.path() != RealLog::memoryFolder(logs); });
    return isMarked && isAnother && isUnmarked && entries == 1;
  });
  if (status == noRights) GTEST_SKIP() << "mounting needs root";
  EXPECT_EQ(status, 0);
}
