// In a folder that everybody shares somebody else was there first: the installed program must not become theirs.
#include "tests/privileged/tool/themes/AttackGround.h"

namespace tests::tool {
namespace {

class SharedFolder : public AttackGround, public ::testing::WithParamInterface<int> {
 protected:
  void SetUp() override {
    AttackGround::SetUp();
    if (IsSkipped()) return;
    shared = folder / "shared";
    fs::create_directory(shared);
    ASSERT_EQ(::chmod(shared.c_str(), static_cast<mode_t>(GetParam())), 0);
    // Jobs beside it are done: an update of root's bundle and one of the user's own.
    rootsBundle(shared / "Roots.app", "1");
    rootsBundle(shared / "Users.app", "1");
    giveTree(shared / "Users.app", invokingUser);
  }
  bool somebodyElseMakes(const fs::path& app) const {
    return tests::resultAs(otherAccount, [&] {
             makeBundle(app, "of somebody else");
             return std::string("made");
           }) == "made";
  }
  void expectInstallable(const std::string& name) {
    EXPECT_TRUE(isDone(replace(shared / name, download(name, "2")))) << lastText;
    EXPECT_EQ(versionOf(shared / name), "version 2");
    EXPECT_EQ(writableBy(otherAccount, shared / name), "");
  }

  fs::path shared;
};

TEST_P(SharedFolder, GivesNoInstalledBundleToTheAccountThatMadeItsNameFirst) {
  expectInstallable("Roots.app");
  expectInstallable("Users.app");
  const auto app = shared / "App.app";
  ASSERT_TRUE(somebodyElseMakes(app));
  const bool done = isDone(replace(app, download("App.app", "2")));
  std::printf("%s: %s", done ? "done" : "refused", lastText.c_str());
  ASSERT_TRUE(isThere(app / "Contents/Info.plist"));
  if (versionOf(app) != "version 2") return;
  EXPECT_NE(statusOf(app).st_uid, otherAccount);
  EXPECT_EQ(writableBy(otherAccount, app), "");
}

INSTANTIATE_TEST_SUITE_P(Modes, SharedFolder, ::testing::Values(01777, 0777),
                         [](const auto& mode) { return mode.param == 01777 ? "Sticky" : "Open"; });

}  // namespace
}  // namespace tests::tool
