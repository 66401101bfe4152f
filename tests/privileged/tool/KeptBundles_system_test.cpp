// Replaced bundles that are kept, and the way back to one.
#include "privileged/tool/KeptBundles.h"

#include "protocol/KeptBundles.h"
#include "protocol/PolicyFile.h"
#include "tests/privileged/tool/KeptBundles.h"
#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {
namespace {

class KeptBundles : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    if (!overlay("/etc", "/etc")) GTEST_SKIP() << "needs an overlay over /etc";
    fs::remove_all(store());
    becomeAnotherUsersTool();
    keep(2);
    makeVersion(installed, "1.0");
  }
  static void keep(int count) {
    fs::create_directories("/etc/kelto");
    writeWithMode(protocol::policyFilePath, "keep = " + std::to_string(count) + "\n");
  }
  static void makeVersion(const fs::path& bundle, const std::string& version, const char* identifier = "com.example.App") {
    fs::remove_all(bundle);
    writeWithMode(bundle / "Contents/Info.plist", informationList(identifier, version));
    writeWithMode(bundle / "Contents/Linux/Controller", "program " + version, 0755);
  }
  void update(const std::string& version) {
    makeVersion(download, version);
    expectSuccess(replace(installed, download));
  }
  // The programs of the bundles that are kept, oldest first.
  static std::vector<std::string> kept() {
    std::vector<std::string> programs;
    for (const auto& bundle : keptBundles()) programs.push_back(read(bundle / "Contents/Linux/Controller"));
    return programs;
  }
  [[nodiscard]] std::string installedProgram() const { return read(installed / "Contents/Linux/Controller"); }

  const fs::path installed = folder / "Applications/App.app";
  const fs::path download = folder / "Download/App.app";
};

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(KeptBundles, AreTheLastOnesThatWereReplaced) {
  const auto before = treeOf(installed);
  update("2.0");
  ASSERT_THAT(kept(), ElementsAre("program 1.0"));
  EXPECT_EQ(treeOf(keptBundles().front()), before) << "modes, times and owners are kept";
  update("3.0");
  EXPECT_THAT(kept(), ElementsAre("program 1.0", "program 2.0"));
  update("4.0");
  EXPECT_THAT(kept(), ElementsAre("program 2.0", "program 3.0")) << "the oldest goes";
}

TEST_F(KeptBundles, AreNoneUnlessAnAdministratorWantsThem) {
  fs::remove(protocol::policyFilePath);
  update("2.0");
  EXPECT_FALSE(fs::exists(store())) << "not even the folder for them";
}

TEST_F(KeptBundles, LieWhereOnlyRootCanWrite) {
  update("2.0");
  for (auto path = keptBundles().front(); path != store().parent_path(); path = path.parent_path()) {
    EXPECT_EQ(statusOf(path).st_uid, 0U) << path;
    EXPECT_EQ(statusOf(path).st_mode & 022U, 0U) << path;
  }
}

TEST_F(KeptBundles, CannotBeReadWhereTheyCouldNotBefore) {
  update("2.0");
  EXPECT_EQ(statusOf(keptBundles().front().parent_path()).st_mode & 0777U, 0755U);
  fs::permissions(installed.parent_path(), fs::perms(0700));
  update("3.0");
  EXPECT_EQ(statusOf(keptBundles().back().parent_path()).st_mode & 0777U, 0700U);
}

TEST_F(KeptBundles, AreCountedForEachApplicationAndPlace) {
  keep(1);
  update("2.0");
  const auto other = folder / "Other/App.app";
  makeVersion(other, "10.0");
  makeVersion(download, "11.0");
  expectSuccess(replace(other, download));
  EXPECT_THAT(kept(), ElementsAre("program 1.0", "program 10.0"));
}

TEST_F(KeptBundles, LeaveOutAUsersOwnBundle) {
  for (const auto& path : {installed, installed / "Contents", installed / "Contents/Info.plist"}) giveToUser(path);
  giveToUser(installed.parent_path());
  update("2.0");
  EXPECT_THAT(kept(), IsEmpty());
}

TEST_F(KeptBundles, LeaveNothingInThemToOthers) {
  giveToUser(installed / "Contents/Linux/Controller");
  update("2.0");
  ASSERT_THAT(kept(), ElementsAre("program 1.0"));
  EXPECT_EQ(statusOf(keptBundles().front() / "Contents/Linux/Controller").st_uid, 0U);
}

// There one rename would keep it.
TEST_F(KeptBundles, LeaveNothingInThemToOthersOnTheFileSystemOfTheStore) {
  const fs::path beside = "/var/lib/apps/App.app";
  makeVersion(beside, "1.0");
  giveToUser(beside / "Contents/Linux/Controller");
  const auto contents = statusOf(beside / "Contents/Info.plist");
  makeVersion(download, "2.0");
  expectSuccess(replace(beside, download));
  ASSERT_THAT(kept(), ElementsAre("program 1.0"));
  EXPECT_EQ(statusOf(keptBundles().front() / "Contents/Linux/Controller").st_uid, 0U);
  makeVersion(download, "3.0");
  expectSuccess(replace(beside, download));
  EXPECT_NE(statusOf(keptBundles().front() / "Contents/Info.plist").st_ino, contents.st_ino) << "a copy";
  fs::remove_all(beside.parent_path());
}

TEST_F(KeptBundles, AreReturnedToInOneSwapWithTheInstalledOne) {
  const auto before = treeOf(installed);
  update("2.0");
  expectSuccess(replace(installed, keptBundles().front()));
  EXPECT_EQ(treeOf(installed), before);
  EXPECT_THAT(kept(), ElementsAre("program 2.0"));
  expectSuccess(replace(installed, keptBundles().front()));
  EXPECT_EQ(installedProgram(), "program 2.0");
  EXPECT_THAT(kept(), ElementsAre("program 1.0"));
  EXPECT_EQ(std::distance(fs::directory_iterator(store()), fs::directory_iterator()), 1) << "no empty folder is left";
}

TEST_F(KeptBundles, AreAlsoReturnedToWhenNoMoreAreKept) {
  update("2.0");
  keep(0);
  expectSuccess(replace(installed, keptBundles().front()));
  EXPECT_EQ(installedProgram(), "program 1.0");
  EXPECT_THAT(kept(), IsEmpty());
}

TEST_F(KeptBundles, DoNotFailAnUpdateThatCannotKeepThem) {
  fs::create_directories(store().parent_path());
  write(store(), "in the way");
  makeVersion(download, "2.0");
  const auto answer = replace(installed, download);
  expectSuccess(answer);
  EXPECT_THAT(answer.text, ::testing::HasSubstr("the replaced version was not kept"));
  EXPECT_EQ(installedProgram(), "program 2.0");
  fs::remove(store());
}

class SignedKeptBundles : public KeptBundles {
 protected:
  void SetUp() override {
    KeptBundles::SetUp();
    if (IsSkipped()) return;
    fs::create_directories("/etc/kelto/trust.d");
    for (const char* path : {"/etc/kelto", "/etc/kelto/trust.d"}) fs::permissions(path, fs::perms(0755));
    writeWithMode("/etc/kelto/trust.d/publisher.pub", publisher.file());
    sign(installed);
    makeVersion(download, "2.0");
    sign(download);
    expectSuccess(replace(installed, download));
  }
  void sign(const fs::path& bundle) const {
    ASSERT_TRUE(runs(KELTO_BIN_DIR "/kelto-manifest " + shellWord(bundle)));
    publisher.sign(bundle / "Contents/_Signature/manifest");
  }

  tests::TemporaryFolder keys;
  KeyPair publisher{keys, "publisher"};
};

TEST_F(SignedKeptBundles, AreNoDowngrade) {
  expectSuccess(replace(installed, keptBundles().front()));
  EXPECT_EQ(installedProgram(), "program 1.0");
}

TEST_F(SignedKeptBundles, AreADowngradeAnywhereElse) {
  const auto copy = folder / "Copy/App.app";
  fs::create_directories(copy.parent_path());
  fs::copy(keptBundles().front(), copy, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  expectRefusal(replace(installed, copy), "a downgrade is not allowed");
  const auto other = folder / "Other/App.app";
  makeVersion(other, "2.0");
  expectRefusal(replace(other, keptBundles().front()), "a downgrade is not allowed");
}

TEST_F(SignedKeptBundles, AreVerifiedAgain) {
  writeWithMode(keptBundles().front() / "Contents/Linux/Controller", "program 6.6", 0755);
  expectRefusal(replace(installed, keptBundles().front()), "Contents/Linux/Controller");
  EXPECT_EQ(installedProgram(), "program 2.0");
  EXPECT_THAT(kept(), ElementsAre("program 6.6"));
}

}  // namespace
}  // namespace tests::tool
