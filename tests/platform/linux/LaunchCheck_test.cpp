#include "platform/linux/LaunchCheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <filesystem>

#include "platform/fake/FakePlatform.h"
#include "protocol/LaunchArguments.h"
#include "tests/support/TemporaryFolder.h"

namespace platform::Linux {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

struct LaunchCheckTest : testing::Test {
  LaunchCheckTest() {
    fs::create_directories(installed + "/Contents");
    fs::create_directories(source + "/Contents");
  }

  // The cause, or nothing.
  [[nodiscard]] std::string cause() const {
    fake::FakeUserDefaults defaults;
    if (!installed.empty()) defaults.values.insert_or_assign(protocol::trashPathArgument, installed);
    if (!source.empty()) defaults.values.insert_or_assign(protocol::sourcePathArgument, source);
    const auto failure = reasonToRefuse(
        defaults, [this](const fs::path& path) { return path == fs::weakly_canonical(readOnly) ? readOnly : ""; });
    return failure ? failure->cause : "";
  }

  tests::TemporaryFolder folder;
  std::string installed = folder.path("Applications/Kelto.app");
  std::string source = folder.path("Downloads/Kelto.app");
  std::string readOnly = folder.path("elsewhere");
};

TEST_F(LaunchCheckTest, GoodPathsAreNotRefused) {
  EXPECT_EQ(cause(), "");
  source.clear();
  EXPECT_EQ(cause(), "");
}

TEST_F(LaunchCheckTest, ATrailingSlashAndALinkOfOnesOwnAreAccepted) {
  fs::create_directory_symlink(folder.path("Applications"), folder.path("mine"));
  installed = folder.path("mine/Kelto.app/");
  EXPECT_EQ(cause(), "");
}

TEST_F(LaunchCheckTest, NothingNeedsToBeInstalledForAnInstallation) {
  fs::remove_all(installed);
  EXPECT_EQ(cause(), "");
  source.clear();
  EXPECT_EQ(cause(), "No such file or directory") << "but for a removal";
}

TEST_F(LaunchCheckTest, AnInstalledBundleMustBeGiven) {
  installed.clear();
  EXPECT_THAT(cause(), HasSubstr("is missing"));
}

TEST_F(LaunchCheckTest, RefusesPathsThatAreNotAbsoluteAndPlain) {
  for (const char* path : {"Kelto.app", "/"}) {
    installed = path;
    EXPECT_NE(cause(), "") << path;
  }
  installed = folder.path("Applications/../Applications/Kelto.app");
  EXPECT_THAT(cause(), HasSubstr("holds \"..\""));
}

TEST_F(LaunchCheckTest, RefusesOneBundleInsideTheOther) {
  const auto good = source;
  source = installed;
  EXPECT_EQ(cause(), "the new bundle is the installed one");
  source = installed + "/Contents";
  EXPECT_EQ(cause(), "the new bundle lies inside the installed one");
  source = good;
  installed = good + "/Contents/Kelto.app";
  EXPECT_EQ(cause(), "the installed bundle lies inside the new one");
  fs::create_directory_symlink(folder.path("Downloads"), folder.path("same"));
  installed = good;
  source = folder.path("same/Kelto.app");
  EXPECT_EQ(cause(), "the new bundle is the installed one") << "under another name";
}

TEST_F(LaunchCheckTest, ANameThatBeginsLikeAnotherIsNotInsideIt) {
  source = installed + "2";
  fs::create_directories(source);
  EXPECT_EQ(cause(), "");
}

TEST_F(LaunchCheckTest, RefusesAMissingFolderAndAMissingSource) {
  source = folder.path("None.app");
  EXPECT_EQ(cause(), "No such file or directory");
  installed = folder.path("Nowhere/Kelto.app");
  EXPECT_THAT(cause(), HasSubstr("Nowhere: No such file"));
}

TEST_F(LaunchCheckTest, RefusesALinkInAFolderThatOthersCanWrite) {
  fs::create_directory_symlink(folder.path("Applications"), folder.path("link"));
  ::chmod(folder.path("").c_str(), 0775);
  installed = folder.path("link/Kelto.app");
  EXPECT_THAT(cause(), HasSubstr("symbolic link"));
  ::chmod(folder.path("").c_str(), 0755);
  EXPECT_EQ(cause(), "");
}

TEST_F(LaunchCheckTest, RefusesABundleThatIsALink) {
  const auto good = source;
  fs::create_directory_symlink(good, folder.path("Downloads/Link.app"));
  for (const char* end : {"", "/", "//"}) {
    source = folder.path("Downloads/Link.app") + end;
    EXPECT_THAT(cause(), HasSubstr("symbolic link"));
  }
  source = good;
  fs::create_directory_symlink(installed, folder.path("Applications/Link.app"));
  installed = folder.path("Applications/Link.app");
  EXPECT_THAT(cause(), HasSubstr("symbolic link"));
  source.clear();
  EXPECT_THAT(cause(), HasSubstr("symbolic link")) << "a removal too";
}

TEST_F(LaunchCheckTest, RefusesANewNameThatSomethingElseHas) {
  source = folder.path("Downloads/App 2.app");
  const auto place = folder.path("Applications/App 2.app");
  fs::create_directories(source);
  EXPECT_EQ(cause(), "");
  fs::create_directories(place);
  EXPECT_THAT(cause(), HasSubstr(place));
  fs::remove(place);
  fs::create_directory_symlink("nowhere", place);
  EXPECT_THAT(cause(), HasSubstr(place)) << "a link to nothing too";
  fs::remove(place);
  installed = folder.path("Applications/Missing.app");
  source = folder.path("Downloads/Kelto.app");
  EXPECT_THAT(cause(), HasSubstr("Applications/Kelto.app")) << "an installed copy that was not named";
}

TEST_F(LaunchCheckTest, TheNewBundleMayAlreadyBeAtItsPlace) {
  source = folder.path("Applications/App 2.app");
  fs::create_directories(source);
  EXPECT_EQ(cause(), "");
}

TEST_F(LaunchCheckTest, RefusesAPipeInTheNewBundle) {
  ASSERT_EQ(::mkfifo((source + "/Contents/pipe").c_str(), 0600), 0);
  EXPECT_THAT(cause(), HasSubstr("pipe, a socket or a device"));
}

TEST_F(LaunchCheckTest, RefusesAFolderThatIsReadOnlyForTheTool) {
  readOnly = folder.path("Applications");
  EXPECT_THAT(cause(), HasSubstr("has " + readOnly + " read-only; move the bundle"));
  fs::create_directory_symlink(readOnly, folder.path("mine"));
  installed = folder.path("mine/Kelto.app");
  EXPECT_THAT(cause(), HasSubstr(readOnly)) << "under another name";
  source.clear();
  EXPECT_THAT(cause(), HasSubstr(readOnly)) << "a removal too";
}

TEST_F(LaunchCheckTest, RefusesAReadOnlyFileSystem) {
  installed = "/sys/Kelto.app";
  struct statvfs fileSystem {};
  if (::statvfs("/sys", &fileSystem) != 0 || (fileSystem.f_flag & ST_RDONLY) == 0) GTEST_SKIP() << "/sys can be written";
  EXPECT_EQ(cause(), "/sys: Read-only file system");
}

}  // namespace
}  // namespace platform::Linux
