#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/FileManager.h"
#include "tests/support/TemporaryFolder.h"

namespace platform::Linux {
namespace {

TEST(Volume, AFreshlyMountedOneIsFoundByItsOwnName) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting needs root";
  const tests::TemporaryFolder folder;
  const std::string point = folder.path("a volume");
  std::filesystem::create_directory(point);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("kelto", point.c_str(), "tmpfs", 0, "size=64k") != 0)
      ::_exit(2);
    tests::writeFile(point + "/document", "x");
    const auto url = platform::Linux::FileManager().volumeURLForPath(point + "/document");
    ::_exit(url == "file://" + folder.path("a%20volume/") ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 2) GTEST_SKIP() << "no mount namespace to be had here";
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace platform::Linux
