// Jobs of a user who holds the first right only, where the administrators' policy lists locations.
#include "protocol/PolicyFile.h"
#include "tests/privileged/tool/SignedBundle.h"
#include "tests/privileged/tool/themes/AttackGround.h"

namespace tests::tool {
namespace {

class Locations : public AttackGround {
 protected:
  void SetUp() override {
    AttackGround::SetUp();
    if (IsSkipped()) return;
    if (!overlay("/etc", "/etc")) GTEST_SKIP() << "needs an overlay over /etc";
    bind(folder / "passwd", "/etc/passwd");
    fs::create_directories("/etc/kelto");
    fs::permissions("/etc/kelto", fs::perms(0755));
    fs::create_directory(applications);
    list({applications});
    rootsBundle(installed, "1");
    rootsBundle(etc / "Old.app", "1");
    writeWithMode(etc / "job", "root's");
    offered = download("App.app", "2");
  }
  static void list(const std::vector<fs::path>& folders) {
    std::string text;
    for (const auto& each : folders) text += "locations = " + each.string() + "\n";
    writeWithMode(protocol::policyFilePath, text);
  }
  void holdTheSecondRight() { environment.push_back(std::string(protocol::anyProgramVariable) + "=1"); }

  // The job is refused for the place, which the cause names, and nothing in the tested folders is different afterwards.
  void expectOutside(const std::function<Answer()>& job, const fs::path& named) {
    const auto before = state();
    expectRefusal(job(), named.string() + " lies below no folder of the key \"locations\"");
    EXPECT_EQ(state(), before);
  }
  [[nodiscard]] std::vector<std::map<std::string, std::string>> state() const {
    return {snapshot(applications), snapshot(etc), snapshot(home() / "Downloads")};
  }
  // Each of these commands would change root's folder.
  void tryEachCommandIn(const fs::path& place,
                        const std::function<void(const std::function<Answer()>&, fs::path)>& expect) {
    expect([&] { return replace(place / "Old.app", offered); }, place / "Old.app");
    expect([&] { return replace(place / "New.app", download("App.app", "3")); }, place / "New.app");
    expect([&] { return copy(download("App.app", "4"), place / "Copy.app"); }, place / "Copy.app");
    expect([&] { return move(download("App.app", "5"), place / "Moved.app"); }, place / "Moved.app");
    expect([&] { return remove(place / "job"); }, place / "job");
    expect([&] { return trash(place / "Old.app"); }, place / "Old.app");
  }
  void expectEachCommandDoneInRootsFolder() {
    tryEachCommandIn(etc, [&](const std::function<Answer()>& job, const fs::path& /*named*/) { expectSuccess(job()); });
    EXPECT_EQ(versionOf(etc / "New.app"), "version 3");
    EXPECT_EQ(versionOf(etc / "Copy.app"), "version 4");
    EXPECT_EQ(versionOf(etc / "Moved.app"), "version 5");
    EXPECT_FALSE(isThere(etc / "job"));
    EXPECT_FALSE(isThere(etc / "Old.app"));
  }

  const fs::path applications = folder / "Applications";
  const fs::path installed = applications / "App.app";
  const fs::path etc = folder / "etc";
  fs::path offered;
};

TEST_F(Locations, LetNoCommandChangeAnythingElsewhere) {
  tryEachCommandIn(etc, [&](const std::function<Answer()>& job, const fs::path& named) {
    const auto before = snapshot(etc);
    expectRefusal(job(), named.string() + " lies below no folder of the key \"locations\"");
    EXPECT_EQ(snapshot(etc), before);
  });
  EXPECT_TRUE(isThere(offered));
}

TEST_F(Locations, LetEachCommandDoItsWorkBelowThem) {
  expectSuccess(replace(installed, offered));
  EXPECT_EQ(versionOf(installed), "version 2");
  expectSuccess(move(installed, applications / "Moved.app"));
  expectSuccess(copy(applications / "Moved.app", applications / "Copy.app"));
  expectSuccess(trash(applications / "Copy.app"));
  EXPECT_TRUE(isThere(home() / ".local/share/Trash/files/Copy.app"));
  expectSuccess(remove(applications / "Moved.app/Contents/Link"));
  expectSuccess(remove(applications / "Moved.app"));
  EXPECT_TRUE(snapshot(applications).empty());
}

TEST_F(Locations, MayBeSeveral) {
  list({applications, etc});
  expectEachCommandDoneInRootsFolder();
}

TEST_F(Locations, BoundNothingWhenTheKeyIsNotSet) {
  list({});
  expectEachCommandDoneInRootsFolder();
}

TEST_F(Locations, DoNotBindWhoHoldsTheSecondRight) {
  holdTheSecondRight();
  expectEachCommandDoneInRootsFolder();
}

TEST_F(Locations, AllowNothingWhenThePolicyIsWrong) {
  writeWithMode(protocol::policyFilePath, "locations = " + applications.string() + "\nlocation = /\n");
  expectOutside([&] { return remove(installed); }, installed);
}

TEST_F(Locations, AreNotToBeChangedThemselves) {
  expectOutside([&] { return remove(applications); }, applications);
  expectOutside([&] { return trash(applications); }, applications);
  expectOutside([&] { return move(applications, folder / "apps/Moved"); }, folder / "apps/Moved");
  EXPECT_TRUE(isThere(installed));
}

TEST_F(Locations, AreNotLeftOverALink) {
  fs::create_directory_symlink(etc, applications / "away");
  fs::create_directory_symlink("../etc", applications / "up");
  for (const char* name : {"away", "up"})
    expectOutside([&] { return copy(offered, applications / name / "cron.d/job"); }, etc / "cron.d/job");
  expectOutside([&] { return remove(applications / "away/job"); }, etc / "job");
}

TEST_F(Locations, AreNotLeftByAPathThatClimbs) {
  const auto before = snapshot(etc);
  expectRefusal(remove(applications / "../etc/job"), "..");
  EXPECT_EQ(snapshot(etc), before);
}

TEST_F(Locations, AreNotReachedOverALinkOfTheUsers) {
  fs::create_directory_symlink(applications, home() / "to-applications");
  fs::create_directory_symlink(etc, home() / "to-etc");
  for (const char* name : {"to-applications", "to-etc"}) {
    ASSERT_EQ(::lchown((home() / name).c_str(), invokingUser, invokingGroup), 0);
    const auto before = state();
    expectRefusal(replace(home() / name / "App.app", offered), "a folder of someone else");
    EXPECT_EQ(state(), before);
  }
}

TEST_F(Locations, AreTheFoldersThemselvesUnderWhateverName) {
  fs::create_directory_symlink(applications, folder / "alias");
  expectSuccess(replace(folder / "alias/App.app", offered));
  EXPECT_EQ(versionOf(installed), "version 2");
}

// There a folder or link could be exchanged at any moment.
TEST_F(Locations, LeaveOutFoldersThatOthersThanRootCanWrite) {
  for (const char* name : {"of-user", "of-group"}) fs::create_directories(applications / name / "inner");
  giveToUser(applications / "of-user");
  fs::permissions(applications / "of-group", fs::perms(0775));
  for (const char* name : {"of-user", "of-group"})
    expectOutside([&] { return copy(offered, applications / name / "inner/App.app"); },
                  applications / name / "inner/App.app");
}

TEST_F(Locations, LetNothingBeReadElsewhereThatTheUserMayNotRead) {
  writeWithMode(etc / "secret", "of root", 0600);
  writeWithMode(etc / "closed/inner/readable", "of root", 0644);
  fs::permissions(etc / "closed", fs::perms(0700));
  writeWithMode(etc / "Tree.app/Contents/secret", "of root", 0600);
  for (const char* name : {"secret", "closed/inner/readable", "Tree.app"}) {
    const auto before = state();
    expectRefusal(copy(etc / name, applications / "Copy"), "Permission denied");
    expectRefusal(replace(applications / "Copy", etc / name), "Permission denied");
    EXPECT_EQ(state(), before);
  }
}

TEST_F(Locations, LetAnythingBeCopiedThatTheUserMayRead) {
  expectSuccess(copy(etc / "job", applications / "Copy"));
  EXPECT_EQ(read(applications / "Copy"), "root's");
  expectSuccess(replace(installed, etc / "Old.app"));
  EXPECT_TRUE(isThere(etc / "Old.app"));
}

TEST_F(Locations, LetNothingBeTakenOutOfAFolderOfRoots) {
  giveToUser(etc / "job");
  const auto before = state();
  expectRefusal(move(etc / "job", applications / "job"), (etc / "job").string() + " is not the user's");
  expectRefusal(move(etc / "Old.app", applications / "Old.app"), "\"locations\"");
  EXPECT_EQ(state(), before);
}

TEST_F(Locations, HoldNothingOfTheUsersAfterACopyOrAMove) {
  expectSuccess(copy(offered, applications / "Copy.app"));
  expectSuccess(move(offered, applications / "Moved.app"));
  EXPECT_FALSE(isThere(offered));
  for (const auto& entry : fs::recursive_directory_iterator(applications))
    EXPECT_EQ(statusOf(entry.path()).st_uid, 0U) << entry.path();
  EXPECT_EQ(writableBy(invokingUser, applications), "");
}

}  // namespace
}  // namespace tests::tool
