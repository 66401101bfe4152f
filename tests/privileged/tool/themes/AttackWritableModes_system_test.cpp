// A download brings modes and access lists that let others write. Installed for everybody, nobody but root may write it.
#include <sys/xattr.h>

#include <array>

#include "tests/privileged/tool/themes/AttackGround.h"

namespace tests::tool {
namespace {

// An access list as the kernel stores it: owner and one more account may read and write, everybody else reads.
struct AccessList {
  struct Entry {
    std::uint16_t tag;
    std::uint16_t permissions;
    std::uint32_t account;
  };
  std::uint32_t version = 2;
  std::array<Entry, 5> entries;

  explicit AccessList(uid_t account, std::uint16_t allowed)
      : entries{{{0x01, 7, noAccount},
                 {0x02, allowed, account},
                 {0x04, 5, noAccount},
                 {0x10, 7, noAccount},
                 {0x20, 5, noAccount}}} {}
  static constexpr std::uint32_t noAccount = 0xFFFFFFFF;
};

enum class Came { WithinTheVolume, FromAnotherVolume };

class WritableDownload : public AttackGround, public ::testing::WithParamInterface<Came> {
 protected:
  void SetUp() override {
    AttackGround::SetUp();
    if (IsSkipped()) return;
    source = download("App.app", "2");
    if (GetParam() == Came::FromAnotherVolume) source = carried(source);
  }
  fs::path carried(const fs::path& app) {
    const auto stick = volume("stick");
    fs::copy(app, stick / "App.app", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    giveTree(stick, invokingUser);
    return stick / "App.app";
  }
  void openWithModes() const {
    ASSERT_EQ(::chmod((source / "Contents/Info.plist").c_str(), 0666), 0);
    ASSERT_EQ(::chmod((source / "Contents/Linux/Controller").c_str(), 0777), 0);
    ASSERT_EQ(::chmod((source / "Contents/Resources").c_str(), 0777), 0);
  }
  void openWithAccessLists(uid_t account) const {
    const AccessList list(account, 7);
    for (const char* name : {"Contents/Info.plist", "Contents/Linux/Controller", "Contents/Resources"})
      ASSERT_EQ(::setxattr((source / name).c_str(), "system.posix_acl_access", &list, sizeof list, 0), 0) << name;
    ASSERT_EQ(::setxattr((source / "Contents").c_str(), "system.posix_acl_default", &list, sizeof list, 0), 0);
  }
  void expectNobodyWrites(const fs::path& app) {
    EXPECT_EQ(versionOf(app), "version 2") << lastText;
    EXPECT_EQ(writableBy(otherAccount, app), "");
    EXPECT_EQ(writableBy(invokingUser, app), "");
    // Later additions to the installed bundle inherit nothing either.
    write(app / "Contents/later", "by root");
    EXPECT_EQ(writableBy(otherAccount, app / "Contents/later"), "");
  }

  fs::path source;
};

TEST_P(WritableDownload, OpenToAllByItsModesIsClosedWhenItTakesThePlaceOfRoots) {
  openWithModes();
  ASSERT_NE(writableBy(otherAccount, source), "");
  const auto app = rootsBundle(folder / "apps/App.app", "1");
  ASSERT_TRUE(isDone(replace(app, source))) << lastText;
  expectNobodyWrites(app);
}

TEST_P(WritableDownload, OpenToOneAccountByAccessListsIsClosedWhenItTakesThePlaceOfRoots) {
  openWithAccessLists(otherAccount);
  ASSERT_NE(writableBy(otherAccount, source), "");
  const auto app = rootsBundle(folder / "apps/App.app", "1");
  ASSERT_TRUE(isDone(replace(app, source))) << lastText;
  expectNobodyWrites(app);
}

TEST_P(WritableDownload, OpenToItsOwnerByAccessListsIsClosedWhenItTakesThePlaceOfRoots) {
  openWithAccessLists(invokingUser);
  const auto app = rootsBundle(folder / "apps/App.app", "1");
  ASSERT_TRUE(isDone(replace(app, source))) << lastText;
  expectNobodyWrites(app);
}

TEST_P(WritableDownload, IsClosedWhenItIsTheFirstInAFolderOfRoots) {
  openWithModes();
  ASSERT_NE(writableBy(otherAccount, source), "");
  ASSERT_TRUE(isDone(replace(folder / "apps/App.app", source))) << lastText;
  expectNobodyWrites(folder / "apps/App.app");
}

INSTANTIATE_TEST_SUITE_P(Came, WritableDownload, ::testing::Values(Came::WithinTheVolume, Came::FromAnotherVolume),
                         [](const auto& came) {
                           return came.param == Came::WithinTheVolume ? "WithinTheVolume" : "FromAnotherVolume";
                         });

}  // namespace
}  // namespace tests::tool
