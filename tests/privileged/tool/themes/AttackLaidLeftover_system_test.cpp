// A user lays a folder that looks like what a killed job of root's has left: root's next job must not obey it.
#include "tests/privileged/tool/themes/AttackGround.h"

namespace tests::tool {
namespace {

class LaidLeftover : public AttackGround {
 protected:
  void SetUp() override {
    AttackGround::SetUp();
    if (IsSkipped()) return;
    // Bundles of root's in a folder of the user's.
    apps = home() / "Applications";
    target = folder / "etc/cron.d/evil";
    first = rootsBundle(apps / "First.app", "1");
    second = rootsBundle(apps / "Second.app", "1");
    giveToUser(apps);
  }
  // The notes of a job that was killed with the file `new` in its hands.
  void addNotes(const fs::path& place) const {
    write(place / "new", "* * * * * root true\n");
    fs::create_symlink(target, place / "source");
    fs::create_symlink(std::to_string(statusOf(place / "new").st_ino), place / "source-inode");
    fs::permissions(place, fs::perms(0700));
  }
  bool takesNewName(const fs::path& from, const fs::path& to) const {
    return tests::resultAs(invokingUser, [&] {
             return std::string(::rename(from.c_str(), to.c_str()) == 0 ? "renamed" : "no");
           }) == "renamed";
  }
  // One update of the other bundle beside it.
  bool runsAnotherJob() { return isDone(replace(second, download("Second.app", "2"))) && versionOf(second) == "version 2"; }
  void expectNothingOfTheUsersInRootsFolders() {
    EXPECT_FALSE(isThere(target)) << read(target);
    EXPECT_TRUE(fs::is_empty(folder / "etc/cron.d"));
  }

  fs::path apps;
  fs::path target;
  fs::path first;
  fs::path second;
  const std::string name = ".kelto-staging-0123456789abcdef";
};

TEST_F(LaidLeftover, ThatCameAsAnUpdateIsNotObeyedByTheNextJob) {
  const auto source = download("First.app", "2");
  addNotes(source);
  giveTree(source, invokingUser);
  ASSERT_TRUE(isDone(replace(first, source))) << lastText;
  ASSERT_EQ(versionOf(first), "version 2");
  ASSERT_EQ(statusOf(first).st_uid, 0U);
  ASSERT_TRUE(takesNewName(first, apps / name));
  EXPECT_TRUE(runsAnotherJob()) << lastText;
  expectNothingOfTheUsersInRootsFolders();
}

// However it came to be root's, and with everything right that the user may have had to guess.
TEST_F(LaidLeftover, OfRootsIsNeitherObeyedNorRemoved) {
  addNotes(first);
  giveTree(first, 0);
  ASSERT_TRUE(takesNewName(first, apps / name));
  const auto before = snapshot(apps / name);
  EXPECT_TRUE(runsAnotherJob()) << lastText;
  expectNothingOfTheUsersInRootsFolders();
  EXPECT_EQ(snapshot(apps / name), before);
}

// The note of a job between its two renames: the folder's "old" would become the item beside it.
TEST_F(LaidLeftover, PutsNothingBackBesideIt) {
  makeBundle(first / "old", "of the user");
  fs::create_symlink("Third.app", first / "destination");
  fs::permissions(first, fs::perms(0700));
  giveTree(first, 0);
  ASSERT_TRUE(takesNewName(first, apps / name));
  EXPECT_TRUE(runsAnotherJob()) << lastText;
  EXPECT_FALSE(isThere(apps / "Third.app"));
  EXPECT_TRUE(isThere(apps / name / "old"));
}

}  // namespace
}  // namespace tests::tool
