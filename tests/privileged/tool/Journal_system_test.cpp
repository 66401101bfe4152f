// The folder in which the tool notes what the next job has to finish: whose it is, and when it is refused.
#include "tests/privileged/tool/Namespace.h"

namespace tests::tool {
namespace {

class RootsJournal : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    makeBundle(app, "1");
    makeBundle(fresh, "2");
    write(folder / "victim", "stays");
  }
  // One job of each kind that needs a staging folder is refused, and changes nothing.
  void expectAllJobsRefused(const std::string& reason) {
    const auto before = snapshot(folder);
    for (const auto& answer : {replace(app, fresh), replace(folder / "apps/New.app", fresh), remove(folder / "victim"),
                               copy(fresh, folder / "apps/Copy.app")}) {
      EXPECT_GT(answer.status, 0);
      EXPECT_THAT(answer.text, ::testing::HasSubstr(reason));
    }
    EXPECT_EQ(snapshot(folder), before);
  }
  static mode_t modeOf(const fs::path& path) { return statusOf(path).st_mode & ALLPERMS; }

  fs::path app = folder / "apps/App.app";
  fs::path fresh = folder / "download/App.app";
  const fs::path above = "/var/lib/kelto";
};

TEST_F(RootsJournal, LiesWhereOnlyRootCanWriteWhateverTheEnvironmentSays) {
  for (const char* variable : {"HOME", "XDG_STATE_HOME"})
    environment.push_back(variable + ("=" + (folder / "led").string()));
  EXPECT_EQ(replace(app, fresh).status, 0);
  EXPECT_FALSE(isThere(folder / "led"));
  EXPECT_FALSE(isThere(folder / "state"));
  EXPECT_EQ(modeOf(above), 0755U);
  EXPECT_EQ(modeOf(above / "jobs"), 0700U);
  EXPECT_EQ(statusOf(above).st_uid, 0U);
}

TEST_F(RootsJournal, ThatCannotBeWrittenFailsTheJobBeforeAnythingChanges) {
  volume("/var/lib");
  makeReadOnly("/var/lib");
  expectAllJobsRefused("cannot keep notes in /var/lib/kelto: Read-only file system");
}

TEST_F(RootsJournal, ThatOthersCanWriteIsRefused) {
  fs::create_directories(above / "jobs");
  for (const auto& part : {above, above / "jobs"}) {
    fs::permissions(part, fs::perms(0777));
    expectAllJobsRefused("cannot keep notes in " + part.string() + ": others can write there");
    fs::permissions(part, fs::perms(0755));
    giveToUser(part);
    expectAllJobsRefused("others can write there");
    EXPECT_EQ(::lchown(part.c_str(), 0, 0), 0);
  }
}

TEST_F(RootsJournal, ThatIsALinkIsRefused) {
  fs::create_directories(folder / "state-of-others/jobs");
  fs::create_directory_symlink(folder / "state-of-others", above);
  expectAllJobsRefused("cannot keep notes in /var/lib/kelto");
  EXPECT_TRUE(fs::is_empty(folder / "state-of-others/jobs"));
}

class UsersJournal : public RootsJournal {
 protected:
  void SetUp() override {
    RootsJournal::SetUp();
    if (IsSkipped()) return;
    becomeAnotherUsersTool();
    command = {"/usr/bin/setpriv", "--reuid",  std::to_string(invokingUser), "--regid", std::to_string(invokingGroup),
               "--clear-groups",   toolProgram};
    environment = {"ASAN_OPTIONS=detect_leaks=0", "HOME=/nonexistent"};
    for (const auto& entry : fs::recursive_directory_iterator(folder)) giveToUser(entry.path());
  }
};

TEST_F(UsersJournal, LiesInTheStateFolderOfTheUsersHome) {
  const auto answer = replace(app, fresh);
  EXPECT_EQ(answer.status, 0) << answer.text;
  EXPECT_EQ(modeOf(home() / ".local/state/kelto/jobs"), 0700U);
  EXPECT_EQ(statusOf(home() / ".local/state/kelto/jobs").st_uid, invokingUser);
  EXPECT_FALSE(isThere(above));
}

TEST_F(UsersJournal, LiesInTheStateFolderThatTheUserNames) {
  environment.push_back("XDG_STATE_HOME=" + (home() / "state").string());
  const auto answer = replace(app, fresh);
  EXPECT_EQ(answer.status, 0) << answer.text;
  EXPECT_TRUE(isThere(home() / "state/kelto/jobs"));
  EXPECT_FALSE(isThere(home() / ".local"));
}

}  // namespace
}  // namespace tests::tool
