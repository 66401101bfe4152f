#include "platform/linux/PrivateTemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "tests/support/Environment.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using platform::Linux::privateTemporaryFolder;

class PrivateTemporaryFolder : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"runtime", "tmp"}) fs::create_directory(folder.path(name));
    fs::permissions(folder.path("runtime"), fs::perms(0700));
    fs::permissions(folder.path("tmp"), fs::perms(01777));
  }
  std::string nameInTmp(const std::string& ending = "") const {
    return folder.path("tmp") + "/kelto-" + std::to_string(::geteuid()) + ending;
  }
  static unsigned modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  }

  tests::TemporaryFolder folder;
  tests::EnvironmentVariable runtime{"XDG_RUNTIME_DIR", folder.path("runtime")};
  tests::EnvironmentVariable temporary{"TMPDIR", folder.path("tmp")};
};

TEST_F(PrivateTemporaryFolder, LiesInTheUsersRuntimeFolder) {
  EXPECT_EQ(privateTemporaryFolder(), folder.path("runtime") + "/kelto");
  EXPECT_EQ(modeOf(folder.path("runtime") + "/kelto"), 0700U);
}

TEST_F(PrivateTemporaryFolder, IsTheSameAtTheNextCall) { EXPECT_EQ(privateTemporaryFolder(), privateTemporaryFolder()); }

TEST_F(PrivateTemporaryFolder, LiesInTheTemporaryFolderWithoutARuntimeFolder) {
  const tests::EnvironmentVariable missing("XDG_RUNTIME_DIR", folder.path("missing"));
  EXPECT_EQ(privateTemporaryFolder(), nameInTmp());
  EXPECT_EQ(modeOf(nameInTmp()), 0700U);
}

TEST_F(PrivateTemporaryFolder, PassesOverARuntimeFolderThatOthersCanWrite) {
  fs::permissions(folder.path("runtime"), fs::perms(0777));
  EXPECT_EQ(privateTemporaryFolder(), nameInTmp());
}

TEST_F(PrivateTemporaryFolder, PassesOverAFolderThatOthersCanEnter) {
  const tests::EnvironmentVariable missing("XDG_RUNTIME_DIR", folder.path("missing"));
  fs::create_directory(nameInTmp());
  fs::permissions(nameInTmp(), fs::perms(0711));
  EXPECT_EQ(privateTemporaryFolder(), nameInTmp("-1"));
}

TEST_F(PrivateTemporaryFolder, PassesOverALinkOfItsName) {
  const tests::EnvironmentVariable missing("XDG_RUNTIME_DIR", folder.path("missing"));
  fs::create_directory_symlink(folder.path("runtime"), nameInTmp());
  EXPECT_EQ(privateTemporaryFolder(), nameInTmp("-1"));
}

TEST_F(PrivateTemporaryFolder, HasARandomNameWhenAllOthersAreTaken) {
  const tests::EnvironmentVariable missing("XDG_RUNTIME_DIR", folder.path("missing"));
  fs::create_directory_symlink(folder.path("runtime"), nameInTmp());
  for (int number = 1; number < 16; ++number)
    fs::create_directory_symlink(folder.path("runtime"), nameInTmp("-" + std::to_string(number)));
  const auto path = privateTemporaryFolder();
  EXPECT_EQ(path.rfind(nameInTmp("-"), 0), 0U) << path;
  EXPECT_EQ(modeOf(path), 0700U);
}

using Claim = platform::Linux::TemporaryFolderClaim;

TEST_F(PrivateTemporaryFolder, AClaimDeletesWhatAKilledProgramLeftAndNothingElse) {
  const auto path = privateTemporaryFolder();
  for (const char* name : {"/KeltoAAAAAAAAAA", "/Kelto", "/KeltoAAAAAAAAAAA", "/other"}) tests::writeFile(path + name, "");
  fs::create_symlink("/etc/passwd", path + "/KeltoBBBBBBBBBB");
  const Claim claim("Kelto", 10);
  EXPECT_FALSE(fs::exists(path + "/KeltoAAAAAAAAAA"));
  for (const char* name : {"/Kelto", "/KeltoAAAAAAAAAAA", "/other", "/KeltoBBBBBBBBBB"})
    EXPECT_TRUE(fs::is_symlink(path + name) || fs::exists(path + name)) << name;
}

TEST_F(PrivateTemporaryFolder, AClaimLeavesTheFilesOfAnotherAlone) {
  auto first = std::make_unique<Claim>("Kelto", 10);
  const auto file = privateTemporaryFolder() + "/KeltoAAAAAAAAAA";
  tests::writeFile(file, "");
  { const Claim second("Kelto", 10); }
  EXPECT_TRUE(fs::exists(file));
  first.reset();
  EXPECT_FALSE(fs::exists(file));
}

TEST_F(PrivateTemporaryFolder, TheLastClaimTakesTheEmptyFolderAlong) {
  { const Claim claim("Kelto", 10); }
  EXPECT_FALSE(fs::exists(folder.path("runtime") + "/kelto"));
}

}  // namespace
