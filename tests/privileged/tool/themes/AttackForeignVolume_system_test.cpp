// A volume that the user brought along holds files of uid 0 that root never made. Its owners prove nothing.
#include "tests/privileged/tool/themes/AttackGround.h"

namespace tests::tool {
namespace {

class ForeignVolume : public AttackGround {
 protected:
  void SetUp() override {
    AttackGround::SetUp();
    if (IsSkipped()) return;
    stick = volume("stick");
    makeStick();
    // As a desktop mounts it for its user.
    ASSERT_EQ(::mount(nullptr, stick.c_str(), nullptr, MS_REMOUNT | MS_NOSUID | MS_NODEV, nullptr), 0);
    write(folder / "etc/cron.d/backup", "of root");
  }
  void makeStick() const {
    write(stick / "mine/document", "of the user");
    write(stick / "mine/Old.app/Contents/Info.plist", "version 1");
    giveTree(stick / "mine", invokingUser);
    fs::create_directory(stick / "laid");
    fs::create_directory_symlink(folder / "etc/cron.d", stick / "laid/link");
    ASSERT_EQ(statusOf(stick / "laid/link").st_uid, 0U);
  }
  // People do this with their volumes all the time.
  void expectUsable() {
    EXPECT_TRUE(isDone(replace(stick / "mine/Old.app", download("Old.app", "2")))) << lastText;
    EXPECT_EQ(versionOf(stick / "mine/Old.app"), "version 2");
    EXPECT_TRUE(isDone(remove(stick / "mine/document"))) << lastText;
    EXPECT_FALSE(isThere(stick / "mine/document"));
  }
  void expectRootsFolderUntouched() {
    EXPECT_EQ(read(folder / "etc/cron.d/backup"), "of root") << lastText;
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "etc/cron.d"), fs::directory_iterator()), 1) << lastText;
  }

  fs::path stick;
};

TEST_F(ForeignVolume, LeadsNoRemovalIntoAFolderOfRoots) {
  expectUsable();
  EXPECT_FALSE(isDone(remove(stick / "laid/link/backup")));
  expectRootsFolderUntouched();
}

TEST_F(ForeignVolume, LeadsNoNewItemIntoAFolderOfRoots) {
  expectUsable();
  const auto source = home() / "evil";
  write(source, "* * * * * root true\n");
  giveToUser(source);
  EXPECT_FALSE(isDone(replace(stick / "laid/link/evil", source)));
  write(source, "* * * * * root true\n");
  giveToUser(source);
  EXPECT_FALSE(isDone(copy(source, stick / "laid/link/evil")));
  EXPECT_FALSE(isDone(move(source, stick / "laid/link/evil")));
  expectRootsFolderUntouched();
}

TEST_F(ForeignVolume, LeadsNoReplacementIntoAFolderOfRoots) {
  expectUsable();
  const auto source = home() / "evil";
  write(source, "* * * * * root true\n");
  giveToUser(source);
  EXPECT_FALSE(isDone(replace(stick / "laid/link/backup", source)));
  expectRootsFolderUntouched();
}

}  // namespace
}  // namespace tests::tool
