#include "platform/linux/Shell.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <thread>

#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"

namespace platform::Linux {
namespace {

// Runs the call on another thread, and counts.
class CountingCall final : public BlockingCall {
 public:
  void run(const std::function<void()>& call) override {
    ++count;
    std::thread(call).join();
  }
  int count = 0;
};

TEST(Shell, RunsTheLineAndGivesItsStatus) {
  const tests::TemporaryFolder folder;
  DirectCall direct;
  EXPECT_EQ(platform::Linux::Shell(direct).system("echo \"two words\" | tr a-z A-Z > " + folder.path("out")), 0);
  EXPECT_EQ(tests::readFile(folder.path("out")), "TWO WORDS\n");
  EXPECT_EQ(WEXITSTATUS(platform::Linux::Shell(direct).system("exit 3")), 3);
  EXPECT_EQ(WEXITSTATUS(platform::Linux::Shell(direct).system("/no/such/command 2>/dev/null")), 127);
}

TEST(Shell, FindsACommandInTheFirstFolderOfPATH) {
  const tests::TemporaryFolder folder;
  tests::writeFile(folder.path("defaults"), "#!/bin/sh\necho \"$@\" > " + folder.path("out") + "\n");
  std::filesystem::permissions(folder.path("defaults"), std::filesystem::perms::owner_all);
  const tests::ScopedEnvironment path("PATH", folder.path() + ":" + ::getenv("PATH"));
  DirectCall direct;
  EXPECT_EQ(platform::Linux::Shell(direct).system("defaults write com.kelto.macController LibraryServerVersion 2"), 0);
  EXPECT_EQ(tests::readFile(folder.path("out")), "write com.kelto.macController LibraryServerVersion 2\n");
}

TEST(Shell, BlocksThroughTheBlockingCall) {
  CountingCall call;
  EXPECT_EQ(platform::Linux::Shell(call).system("true"), 0);
  EXPECT_EQ(call.count, 1);
}

}  // namespace
}  // namespace platform::Linux
