#include <fcntl.h>

#include "privileged/tool/MountTable.h"
#include "tests/privileged/tool/Namespace.h"

namespace tests::tool {
namespace {

class AcrossFileSystems : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    download = volume("Download");
    makeBundle(oldApp, "1");
    makeBundle(newApp(), "2");
  }
  fs::path newApp() const { return folder / "Download/App.app"; }
  fs::path oldApp = folder / "Applications/App.app";
  fs::path download;
};

TEST_F(AcrossFileSystems, ReplaceCopiesFaithfullyAndRemovesTheSource) {
  fs::create_hard_link(newApp() / "Contents/Info.plist", newApp() / "Contents/Second");
  fs::permissions(newApp() / "Contents/Info.plist", fs::perms(0640));
  const auto wanted = snapshot(newApp());
  expectSuccess(replace(oldApp, newApp()));
  EXPECT_EQ(snapshot(oldApp), wanted);
  EXPECT_EQ(statusOf(oldApp / "Contents/Second").st_nlink, 2U);
  EXPECT_FALSE(isThere(newApp()));
}

TEST_F(AcrossFileSystems, ReplaceGivesTheCopyToTheOldOwner) {
  ASSERT_EQ(::lchown(oldApp.c_str(), 65534, 65533), 0);
  ASSERT_EQ(::chmod((newApp() / "Contents/Linux/Controller").c_str(), 06755), 0);
  expectSuccess(replace(oldApp, newApp()));
  EXPECT_EQ(statusOf(oldApp / "Contents/Link").st_uid, 65534U);
  EXPECT_EQ(statusOf(oldApp / "Contents/Linux/Controller").st_gid, 65533U);
  EXPECT_EQ(statusOf(oldApp / "Contents/Linux/Controller").st_mode & ALLPERMS, 0755U);
}

TEST_F(AcrossFileSystems, ReplaceLeavesASourceOnAReadOnlyVolume) {
  makeReadOnly(download);
  const auto answer = replace(oldApp, newApp());
  expectSuccess(answer);
  EXPECT_THAT(answer.text, ::testing::HasSubstr("left at its old place"));
  EXPECT_EQ(read(oldApp / "Contents/Info.plist"), "version 2");
  EXPECT_EQ(read(newApp() / "Contents/Info.plist"), "version 2");
}

TEST_F(AcrossFileSystems, MoveCopiesAndRemovesTheSource) {
  const auto wanted = snapshot(newApp());
  expectSuccess(move(newApp(), folder / "Applications/New.app"));
  EXPECT_EQ(snapshot(folder / "Applications/New.app"), wanted);
  EXPECT_FALSE(isThere(newApp()));
}

TEST_F(AcrossFileSystems, MoveFromAReadOnlyVolumeIsRefused) {
  makeReadOnly(download);
  expectRefusal(move(newApp(), folder / "Applications/New.app"), "Read-only");
  EXPECT_FALSE(isThere(folder / "Applications/New.app"));
  EXPECT_EQ(read(newApp() / "Contents/Info.plist"), "version 2");
}

TEST_F(AcrossFileSystems, AFullDiskLeavesTheOldItem) {
  const auto small = volume("Small", "size=64k,mode=755");
  makeBundle(small / "App.app", "1");
  write(newApp() / "Contents/large", std::string(200000, 'x'));
  const auto oldTree = snapshot(small / "App.app");
  const auto newTree = snapshot(newApp());
  expectRefusal(replace(small / "App.app", newApp()), "No space left");
  EXPECT_EQ(snapshot(small / "App.app"), oldTree);
  EXPECT_EQ(snapshot(newApp()), newTree);
  EXPECT_EQ(std::distance(fs::directory_iterator(small), {}), 1);
}

TEST_F(AcrossFileSystems, ADiskWithoutRoomForAFolderLeavesTheOldItem) {
  const auto small = volume("Small", "size=64k,nr_inodes=10,mode=755");
  write(small / "App.app/file", "old");
  for (int i = 0; i < 7; ++i) write(small / std::to_string(i), "");
  expectRefusal(replace(small / "App.app", newApp()), "No space left");
  EXPECT_EQ(read(small / "App.app/file"), "old");
  EXPECT_EQ(read(newApp() / "Contents/Info.plist"), "version 2");
}

TEST_F(AcrossFileSystems, AFullDiskLeavesNothingOfACopy) {
  const auto small = volume("Small", "size=64k,mode=755");
  write(newApp() / "Contents/large", std::string(200000, 'x'));
  expectRefusal(copy(newApp(), small / "App.app"), "No space left");
  EXPECT_TRUE(fs::is_empty(small));
}

class Mounts : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    write(volume("outer/vol ume") / "item", "item");
    write(folder / "other/item", "other");
  }
  fs::path root() const { return folder / "outer/vol ume"; }
};

TEST_F(Mounts, AreNotRemoved) { expectRefusal(remove(root()), "mounted"); }
TEST_F(Mounts, AreNotTrashed) { expectRefusal(trash(root()), "mounted"); }
TEST_F(Mounts, AreNotReplaced) { expectRefusal(replace(root(), folder / "other"), "mounted"); }
TEST_F(Mounts, AreNoNewItem) { expectRefusal(replace(folder / "other", root()), "mounted"); }
TEST_F(Mounts, AreNotMoved) { expectRefusal(move(root(), folder / "new"), "mounted"); }
TEST_F(Mounts, AreNotRemovedWithTheFolderAbove) {
  expectRefusal(remove(folder / "outer"), "mounted");
  EXPECT_EQ(read(root() / "item"), "item");
}
TEST_F(Mounts, OfASingleFileAreNotRemoved) {
  bind(root() / "item", folder / "other/item");
  expectRefusal(remove(folder / "other/item"), "mounted");
  expectRefusal(remove(folder / "other"), "mounted");
}
TEST_F(Mounts, UnderAnotherNameDoNotHideThatTheDestinationIsInsideTheSource) {
  makeBundle(folder / "App.app", "1");
  fs::create_directory(folder / "alias");
  bind(folder, folder / "alias");
  expectRefusal(copy(folder / "App.app", folder / "alias/App.app/Contents/Copy.app"), "inside");
}
TEST_F(Mounts, OfAFolderInsideTheSourceDoNotMakeACopyEndless) {
  makeBundle(folder / "App.app", "1");
  fs::create_directory(folder / "alias");
  bind(folder / "App.app/Contents", folder / "alias");
  expectRefusal(copy(folder / "App.app", folder / "alias/Copy.app"), "inside");
  EXPECT_FALSE(isThere(folder / "App.app/Contents/Copy.app"));
}
TEST_F(Mounts, OfOneFileSystemTwiceAreTreatedAsTwo) {
  makeBundle(folder / "store/a/App.app", "2");
  makeBundle(folder / "b/App.app", "1");
  fs::create_directories(folder / "a");
  bind(folder / "store/a", folder / "a");
  expectSuccess(replace(folder / "b/App.app", folder / "a/App.app"));
  EXPECT_EQ(read(folder / "b/App.app/Contents/Info.plist"), "version 2");
  EXPECT_FALSE(isThere(folder / "a/App.app"));
}

TEST_F(Mounts, OverlaysKeepTheOldItemWhenTheyCannotExchangeIt) {
  makeBundle(folder / "lower/App.app", "1");
  makeBundle(folder / "New.app", "2");
  if (!overlay(folder / "lower", folder / "merged")) GTEST_SKIP() << "no overlay file system";
  const auto answer = replace(folder / "merged/App.app", folder / "New.app");
  const std::string version = answer.status == 0 ? "version 2" : "version 1";
  EXPECT_EQ(read(folder / "merged/App.app/Contents/Info.plist"), version) << answer.text;
  EXPECT_EQ(isThere(folder / "New.app"), answer.status != 0);
  expectNothingLeftBehind();
}

TEST_F(Mounts, OverlaysGiveTheirLowerFoldersAsNewItems) {
  makeBundle(folder / "lower/App.app", "2");
  makeBundle(folder / "App.app", "1");
  if (!overlay(folder / "lower", folder / "merged")) GTEST_SKIP() << "no overlay file system";
  expectSuccess(replace(folder / "App.app", folder / "merged/App.app"));
  EXPECT_EQ(read(folder / "App.app/Contents/Info.plist"), "version 2");
}

class TrashOfAnotherUser : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    becomeAnotherUsersTool();
  }
  fs::path trashFolder() const { return home() / ".local/share/Trash"; }
};

TEST_F(TrashOfAnotherUser, IsInThatUsersHomeAndAllInItBelongsToThem) {
  makeBundle(folder / "App.app", "1");
  expectSuccess(trash(folder / "App.app"));
  EXPECT_EQ(read(trashFolder() / "files/App.app/Contents/Info.plist"), "version 1");
  for (const auto& entry : fs::recursive_directory_iterator(home())) {
    EXPECT_EQ(statusOf(entry.path()).st_uid, invokingUser) << entry.path();
    EXPECT_EQ(statusOf(entry.path()).st_gid, invokingGroup) << entry.path();
  }
  EXPECT_TRUE(isThere(trashFolder() / "info/App.app.trashinfo"));
}

TEST_F(TrashOfAnotherUser, GivesAwayNoFileThatHasANameElsewhere) {
  write(folder / "secret", "root's");
  fs::create_directory(folder / "tree");
  fs::create_hard_link(folder / "secret", folder / "tree/link");
  expectSuccess(trash(folder / "tree"));
  EXPECT_EQ(statusOf(folder / "secret").st_uid, 0U);
}

TEST_F(TrashOfAnotherUser, MakesNothingWhereThatUserMayNot) {
  fs::create_directory(folder / "protected");
  fs::create_directories(home() / ".local");
  giveToUser(home() / ".local");
  fs::create_directory_symlink(folder / "protected", home() / ".local/share");
  giveToUser(home() / ".local/share");
  write(folder / "item", "item");
  trash(folder / "item");
  EXPECT_TRUE(fs::is_empty(folder / "protected"));
}

TEST_F(TrashOfAnotherUser, IsNotFollowedWhenItIsALink) {
  fs::create_directories(folder / "elsewhere");
  giveToUser(folder / "elsewhere");
  fs::create_directories(home() / ".local/share");
  for (const char* name : {".local", ".local/share"}) giveToUser(home() / name);
  fs::create_directory_symlink(folder / "elsewhere", trashFolder());
  write(folder / "item", "item");
  trash(folder / "item");
  EXPECT_TRUE(fs::is_empty(folder / "elsewhere"));
}

TEST_F(TrashOfAnotherUser, OnAVolumeIsItsOwnTrashWithRelativePaths) {
  const auto top = volume("vol");
  makeBundle(top / "Apps/App.app", "1");
  expectSuccess(trash(top / "Apps/App.app"));
  const auto own = top / (".Trash-" + std::to_string(invokingUser));
  EXPECT_EQ(read(own / "files/App.app/Contents/Info.plist"), "version 1");
  EXPECT_THAT(read(own / "info/App.app.trashinfo"), ::testing::HasSubstr("\nPath=Apps/App.app\n"));
  EXPECT_EQ(statusOf(own).st_mode & ALLPERMS, 0700U);
  for (const auto& entry : fs::recursive_directory_iterator(own)) EXPECT_EQ(statusOf(entry.path()).st_uid, invokingUser);
}

TEST_F(TrashOfAnotherUser, OnAVolumeWithAProperSharedTrashIsInThere) {
  const auto top = volume("vol");
  fs::create_directory(top / ".Trash");
  ASSERT_EQ(::chmod((top / ".Trash").c_str(), 01777), 0);
  write(top / "item", "item");
  expectSuccess(trash(top / "item"));
  EXPECT_EQ(read(top / ".Trash" / std::to_string(invokingUser) / "files/item"), "item");
}

TEST_F(TrashOfAnotherUser, DoesNotUseASharedTrashThatIsNotSticky) {
  const auto top = volume("vol");
  fs::create_directory(top / ".Trash");
  ASSERT_EQ(::chmod((top / ".Trash").c_str(), 0777), 0);
  write(top / "item", "item");
  expectSuccess(trash(top / "item"));
  EXPECT_TRUE(fs::is_empty(top / ".Trash"));
}

TEST_F(TrashOfAnotherUser, DoesNotUseASharedTrashThatIsALink) {
  const auto top = volume("vol");
  fs::create_directory(top / "real");
  ASSERT_EQ(::chmod((top / "real").c_str(), 01777), 0);
  fs::create_directory_symlink("real", top / ".Trash");
  write(top / "item", "item");
  expectSuccess(trash(top / "item"));
  EXPECT_TRUE(fs::is_empty(top / "real"));
}

TEST_F(TrashOfAnotherUser, IsTheHomesByCopyWhenTheVolumesBelongsToSomeoneElse) {
  const auto top = volume("vol");
  const auto own = top / (".Trash-" + std::to_string(invokingUser));
  fs::create_directory(own);
  ASSERT_EQ(::chown(own.c_str(), 1, 1), 0);
  makeBundle(top / "App.app", "1");
  expectSuccess(trash(top / "App.app"));
  EXPECT_TRUE(fs::is_empty(own));
  EXPECT_EQ(read(trashFolder() / "files/App.app/Contents/Info.plist"), "version 1");
  EXPECT_EQ(statusOf(trashFolder() / "files/App.app/Contents/Info.plist").st_uid, invokingUser);
  EXPECT_FALSE(isThere(top / "App.app"));
}

TEST_F(TrashOfAnotherUser, IsTheHomesByCopyWhenTheHomeIsNotOnTheRootFileSystem) {
  // File managers show no Trash of the root file system.
  const fs::path onRoot = fs::canonical(fs::temp_directory_path()) / (folder.filename().string() + "-item");
  if (AssistantTool::MountTable().topFolderOf(onRoot.string()) != "/") GTEST_SKIP() << "the temporary folder is a volume";
  makeBundle(onRoot, "1");
  const auto wanted = snapshot(onRoot / "Contents/Linux").size();
  expectSuccess(trash(onRoot));
  EXPECT_FALSE(isThere(onRoot));
  EXPECT_EQ(snapshot(trashFolder() / "files" / onRoot.filename() / "Contents/Linux").size(), wanted);
  fs::remove_all(onRoot);
}

TEST_F(TrashOfAnotherUser, IsNotWhereTheEnvironmentSays) {
  environment.push_back("XDG_DATA_HOME=" + (folder / "data").string());
  write(folder / "item", "item");
  expectSuccess(trash(folder / "item"));
  EXPECT_FALSE(isThere(folder / "data"));
  EXPECT_EQ(read(trashFolder() / "files/item"), "item");
}

TEST_F(TrashOfAnotherUser, IsRefusedFromAReadOnlyVolume) {
  const auto top = volume("vol");
  write(top / "item", "item");
  makeReadOnly(top);
  expectRefusal(trash(top / "item"), "");
  EXPECT_EQ(read(top / "item"), "item");
  EXPECT_TRUE(!isThere(trashFolder() / "files") || fs::is_empty(trashFolder() / "files"));
  EXPECT_TRUE(!isThere(trashFolder() / "info") || fs::is_empty(trashFolder() / "info"));
}

class AsRootForAnother : public TrashOfAnotherUser {};

TEST_F(AsRootForAnother, AResultFileInAStickyFolderIsRefused) {
  const auto sticky = folder / "tmp";
  fs::create_directory(sticky);
  ASSERT_EQ(::chmod(sticky.c_str(), 01777), 0);
  fs::rename(result, sticky / "result");
  result = sticky / "result";
  write(folder / "item", "item");
  expectRefusal(remove(folder / "item"), "others can enter");
}

TEST_F(AsRootForAnother, AStagingFolderCannotBeEnteredByAnyoneElse) {
  // Stops before the swap, and leaves what the next job would find.
  command = withFaults({"renameat2:signal=KILL:when=1"});
  if (command.empty()) GTEST_SKIP() << "strace cannot trace here";
  makeBundle(home() / "App.app", "1");
  makeBundle(home() / "New.app", "2");
  replace(home() / "App.app", home() / "New.app");
  int found = 0;
  for (const auto& entry : fs::directory_iterator(home())) {
    if (!entry.path().filename().string().starts_with(".kelto-staging-")) continue;
    ++found;
    EXPECT_EQ(statusOf(entry.path()).st_uid, 0U);
    EXPECT_EQ(statusOf(entry.path()).st_mode & ALLPERMS, 0700U);
  }
  EXPECT_EQ(found, 1);
  command = {toolProgram};
  expectSuccess(replace(home() / "App.app", home() / "New.app"));
}

TEST_F(AsRootForAnother, ALookalikeOfAStagingFolderFromAnotherUserIsLeftAlone) {
  const auto trap = home() / ".kelto-staging-0123456789abcdef";
  fs::create_directory(trap);
  fs::permissions(trap, fs::perms(0700));
  fs::create_symlink("victim", trap / "destination");
  write(trap / "old", "planted");
  giveToUser(trap);
  makeBundle(home() / "App.app", "1");
  makeBundle(home() / "New.app", "2");
  EXPECT_EQ(replace(home() / "App.app", home() / "New.app").status, 0);
  EXPECT_TRUE(isThere(trap));
  EXPECT_FALSE(isThere(home() / "victim"));
}

}  // namespace
}  // namespace tests::tool
