// Links in a bundle, and links that a user lays in the folders of the menus.
#include "tests/privileged/tool/DesktopBundles.h"

namespace tests::tool {
namespace {

using ::testing::HasSubstr;

TEST_F(DesktopEntries, ThroughLinksAreLeftOut) {
  const auto linkTo = [&](const fs::path& target, const fs::path& path) {
    fs::remove_all(download / path);
    fs::create_symlink(target, download / path);
  };
  writeWithMode(folder / "planted", entryText("Planted"));
  expectLeftOutAfter([&] { linkTo(folder / "planted", entryOfBundle); }, "not a file");
  expectLeftOutAfter([&] { linkTo("/bin/sh", "Contents/Linux/Controller"); }, "not a file: Contents/Linux/Controller");
  expectLeftOutAfter(
      [&] {
        writeWithMode(download / entryOfBundle, entryText("X", "Contents/Out/sh"));
        linkTo("/bin", "Contents/Out");
      },
      "Contents/Out");
}

// Root would be led there by the user's link.
TEST_F(DesktopEntries, OfAUserAreWrittenWithThatUsersRightsOnly) {
  const auto roots = folder / "roots";
  fs::create_directories(roots);
  fs::create_directories(home() / ".local/share");
  makeUsersOwn(home() / ".local");
  fs::create_symlink(roots, home() / ".local/share/applications");
  giveToUser(installed.parent_path());
  makeUsersOwn(download);
  const auto answer = replace(installed, download);
  EXPECT_THAT(answer.text, HasSubstr("the desktop entry was left out: "));
  EXPECT_TRUE(fs::is_empty(roots));
  EXPECT_EQ(read(result), protocol::successVerdict);
}

TEST_F(DesktopEntries, OfAUserAreRemovedWithThatUsersRightsOnly) {
  const auto roots = folder / "roots";
  write(roots / ".com.example.App.desktop.kelto-new", "like a killed job's");
  giveToUser(installed.parent_path());
  makeUsersOwn(download);
  expectSuccess(replace(installed, download));
  fs::remove_all(users.entry().parent_path());
  fs::create_symlink(roots, users.entry().parent_path());
  const auto answer = remove(installed);
  EXPECT_THAT(answer.text, HasSubstr("cannot remove .com.example.App.desktop.kelto-new"));
  EXPECT_EQ(read(roots / ".com.example.App.desktop.kelto-new"), "like a killed job's");
}

TEST_F(DesktopEntries, OfAUserBoundNoJobToAFolderThatTheUserCannotReach) {
  const auto roots = folder / "roots";
  fs::create_directories(roots / "inner");
  fs::permissions(roots, fs::perms(0700));
  fs::create_directories(home() / ".local/share");
  makeUsersOwn(home() / ".local");
  fs::create_symlink(roots / "inner", home() / ".local/share/applications");
  makeDesktopBundle(installed, "One");
  EXPECT_TRUE(isRemovalBoundedTo(home() / ".local/share", installed));
  EXPECT_FALSE(isRemovalBoundedTo(roots, installed));
}

}  // namespace
}  // namespace tests::tool
