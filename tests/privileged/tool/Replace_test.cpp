#include <fcntl.h>
#include <sys/file.h>
#include <sys/xattr.h>

#include "tests/privileged/tool/ToolRun.h"

namespace ToolTests {
namespace {

class ReplaceItem : public ToolTest {
 protected:
  ReplaceItem() {
    makeBundle(oldApp, "1");
    makeBundle(newApp, "2");
  }
  // The destination holds version 2 and nothing else, the source is gone.
  void expectReplaced() {
    EXPECT_EQ(read(oldApp / "Contents/Info.plist"), "version 2");
    EXPECT_EQ(read(oldApp / "Contents/Linux/Controller"), "program 2");
    EXPECT_FALSE(isThere(newApp));
  }
  // Leaves a staging folder behind as a job does that was killed.
  fs::path leaveStaging(const std::string& digits = "0123456789abcdef") {
    const auto staging = oldApp.parent_path() / (".kelto-staging-" + digits);
    fs::create_directory(staging);
    fs::permissions(staging, fs::perms(0700));
    return staging;
  }
  // So that there is something to adopt, where that is possible.
  void giveOldAppAway() {
    const int given = ::lchown(oldApp.c_str(), 65534, 65534);
    EXPECT_EQ(given == 0, ::geteuid() == 0 || ::geteuid() == 65534);
  }
  bool injectFaults(const std::vector<std::string>& faults) {
    command = withFaults(faults);
    return !command.empty();
  }
  fs::path oldApp = folder / "Applications/App.app";
  fs::path newApp = folder / "Download/App.app";
};

TEST_F(ReplaceItem, PutsTheSourceInThePlaceOfTheDestination) {
  const auto wanted = snapshot(newApp);
  expectSuccess(replace(oldApp, newApp));
  EXPECT_EQ(snapshot(oldApp), wanted);
  EXPECT_FALSE(isThere(newApp));
}

TEST_F(ReplaceItem, LeavesTheNeighboursAlone) {
  write(folder / "Applications/Other.app/file", "other");
  expectSuccess(replace(oldApp, newApp));
  EXPECT_EQ(read(folder / "Applications/Other.app/file"), "other");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder / "Applications"), {}), 2);
}

TEST_F(ReplaceItem, RenamesTheSourceWithoutCopyingIt) {
  const auto inode = statusOf(newApp / "Contents/Info.plist").st_ino;
  expectSuccess(replace(oldApp, newApp));
  EXPECT_EQ(statusOf(oldApp / "Contents/Info.plist").st_ino, inode);
}

TEST_F(ReplaceItem, PutsTheSourceInPlaceWhenNothingIsThere) {
  fs::remove_all(oldApp);
  expectSuccess(replace(oldApp, newApp));
  expectReplaced();
}

TEST_F(ReplaceItem, ReplacesAFileByAFolder) {
  fs::remove_all(oldApp);
  write(oldApp, "a file");
  expectSuccess(replace(oldApp, newApp));
  expectReplaced();
}

TEST_F(ReplaceItem, ReplacesALinkAndNotWhatItPointsTo) {
  fs::rename(oldApp, folder / "Real.app");
  fs::create_directory_symlink(folder / "Real.app", oldApp);
  expectSuccess(replace(oldApp, newApp));
  expectReplaced();
  EXPECT_FALSE(fs::is_symlink(oldApp));
  EXPECT_EQ(read(folder / "Real.app/Contents/Info.plist"), "version 1");
}

TEST_F(ReplaceItem, KeepsModesTimesLinksAndExtendedAttributes) {
  const auto file = newApp / "Contents/Info.plist";
  ASSERT_EQ(::setxattr(file.c_str(), "user.note", "text", 4, 0), 0);
  fs::permissions(file, fs::perms(0640));
  const timespec times[2] = {{.tv_sec = 1000, .tv_nsec = 1}, {.tv_sec = 2000, .tv_nsec = 123456789}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  const auto wanted = snapshot(newApp);
  expectSuccess(replace(oldApp, newApp));
  EXPECT_EQ(snapshot(oldApp), wanted);
  char value[4];
  EXPECT_EQ(::getxattr((oldApp / "Contents/Info.plist").c_str(), "user.note", value, sizeof value), 4);
}

TEST_F(ReplaceItem, DropsSetIDBits) {
  ASSERT_EQ(::chmod((newApp / "Contents/Linux/Controller").c_str(), 06755), 0);
  ASSERT_EQ(::chmod((newApp / "Contents/Resources").c_str(), 02755), 0);
  expectSuccess(replace(oldApp, newApp));
  EXPECT_EQ(statusOf(oldApp / "Contents/Linux/Controller").st_mode & ALLPERMS, 0755U);
  EXPECT_EQ(statusOf(oldApp / "Contents/Resources").st_mode & ALLPERMS, 0755U);
}

TEST_F(ReplaceItem, GivesEveryEntryToTheOldOwner) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to give files away";
  ASSERT_EQ(::lchown(oldApp.c_str(), 65534, 65533), 0);
  expectSuccess(replace(oldApp, newApp));
  for (const auto& entry : fs::recursive_directory_iterator(oldApp)) {
    EXPECT_EQ(statusOf(entry.path()).st_uid, 65534U) << entry.path();
    EXPECT_EQ(statusOf(entry.path()).st_gid, 65533U) << entry.path();
  }
  EXPECT_EQ(statusOf(oldApp).st_uid, 65534U);
}

TEST_F(ReplaceItem, CopiesWhenAFileHasAnotherNameOutside) {
  const auto outside = folder / "outside";
  fs::create_hard_link(newApp / "Contents/Info.plist", outside);
  ASSERT_EQ(::chmod(outside.c_str(), 04755), 0);
  giveOldAppAway();
  expectSuccess(replace(oldApp, newApp));
  expectReplaced();
  EXPECT_NE(statusOf(oldApp / "Contents/Info.plist").st_ino, statusOf(outside).st_ino);
  EXPECT_EQ(statusOf(outside).st_uid, ::geteuid()) << "what is outside belongs to whom it belonged";
  EXPECT_EQ(statusOf(outside).st_mode & ALLPERMS, 04755U);
}

TEST_F(ReplaceItem, KeepsHardLinksInside) {
  fs::create_hard_link(newApp / "Contents/Info.plist", newApp / "Contents/Second.plist");
  giveOldAppAway();
  expectSuccess(replace(oldApp, newApp));
  EXPECT_EQ(statusOf(oldApp / "Contents/Info.plist").st_ino, statusOf(oldApp / "Contents/Second.plist").st_ino);
  EXPECT_EQ(statusOf(oldApp / "Contents/Info.plist").st_nlink, 2U);
}

TEST_F(ReplaceItem, RefusesAPipeInTheNewItem) {
  ASSERT_EQ(::mkfifo((newApp / "Contents/pipe").c_str(), 0600), 0);
  const auto before = snapshot(folder);
  expectRefusal(replace(oldApp, newApp), "pipe");
  EXPECT_EQ(snapshot(folder), before);
}

TEST_F(ReplaceItem, WorksOnAReadOnlyOldTree) {
  fs::permissions(oldApp / "Contents/Linux", fs::perms(0555));
  expectSuccess(replace(oldApp, newApp));
  expectReplaced();
}

TEST_F(ReplaceItem, WorksWithoutAnAtomicExchange) {
  if (!injectFaults({"renameat2:error=EINVAL"})) GTEST_SKIP() << "strace cannot trace here";
  expectSuccess(replace(oldApp, newApp));
  expectReplaced();
}

TEST_F(ReplaceItem, PutsTheOldItemBackWhenTheNewOneCannotFollow) {
  // Without the exchange: the first plain rename takes the source, the second the old item, the third brings the new one.
  if (!injectFaults({"renameat2:error=EINVAL", "renameat:error=EIO:when=3"})) GTEST_SKIP() << "strace cannot trace here";
  const auto wantedOld = snapshot(oldApp);
  const auto wantedNew = snapshot(newApp);
  expectRefusal(replace(oldApp, newApp), "cannot replace");
  EXPECT_EQ(snapshot(oldApp), wantedOld);
  EXPECT_EQ(snapshot(newApp), wantedNew);
}

TEST_F(ReplaceItem, PutsEverythingBackWhenTheSwapFails) {
  if (!injectFaults({"renameat2:error=EIO:when=2"})) GTEST_SKIP() << "strace cannot trace here";
  const auto wantedOld = snapshot(oldApp);
  const auto wantedNew = snapshot(newApp);
  expectRefusal(replace(oldApp, newApp), "cannot replace");
  EXPECT_EQ(snapshot(oldApp), wantedOld);
  EXPECT_EQ(snapshot(newApp), wantedNew);
}

TEST_F(ReplaceItem, PutsEverythingBackWhenTheSwapCannotBeSynced) {
  // With so many files the file system is synced as a whole, and the only single sync is the one after the swap.
  for (int i = 0; i < 20; ++i) write(newApp / "Contents" / std::to_string(i), "file");
  if (!injectFaults({"fsync:error=EIO"})) GTEST_SKIP() << "strace cannot trace here";
  const auto wantedOld = snapshot(oldApp);
  const auto wantedNew = snapshot(newApp);
  expectRefusal(replace(oldApp, newApp), "cannot sync");
  EXPECT_EQ(snapshot(oldApp), wantedOld);
  EXPECT_EQ(snapshot(newApp), wantedNew);
}

TEST_F(ReplaceItem, LeavesTheSourceItsSetIDBitsWhenTheSwapCannotBeSynced) {
  for (int i = 0; i < 20; ++i) write(newApp / "Contents" / std::to_string(i), "file");
  ASSERT_EQ(::chmod((newApp / "Contents/Linux/Controller").c_str(), 06755), 0);
  ASSERT_EQ(::chmod((newApp / "Contents/Resources").c_str(), 02755), 0);
  if (!injectFaults({"fsync:error=EIO"})) GTEST_SKIP() << "strace cannot trace here";
  const auto wanted = snapshot(newApp);
  expectRefusal(replace(oldApp, newApp), "cannot sync");
  EXPECT_EQ(snapshot(newApp), wanted);
}

TEST_F(ReplaceItem, CopiesWhenTheSourceCannotBeRenamed) {
  if (!injectFaults({"renameat2:error=EXDEV:when=1"})) GTEST_SKIP() << "strace cannot trace here";
  const auto wanted = snapshot(newApp);
  expectSuccess(replace(oldApp, newApp));
  EXPECT_EQ(snapshot(oldApp), wanted);
  EXPECT_FALSE(isThere(newApp));
}

TEST_F(ReplaceItem, LeavesACopiedSourceThatCannotBeRemoved) {
  if (!injectFaults({"renameat2:error=EXDEV:when=1", "renameat:error=EROFS"})) GTEST_SKIP() << "strace cannot trace here";
  const auto answer = replace(oldApp, newApp);
  expectSuccess(answer);
  EXPECT_THAT(answer.text, ::testing::HasSubstr("left at its old place"));
  EXPECT_EQ(read(oldApp / "Contents/Info.plist"), "version 2");
  EXPECT_EQ(read(newApp / "Contents/Info.plist"), "version 2");
}

TEST_F(ReplaceItem, ClearsWhatAKilledJobLeft) {
  write(leaveStaging() / "doomed/file", "half an old tree");
  expectSuccess(replace(oldApp, newApp));
  expectReplaced();
}

TEST_F(ReplaceItem, PutsBackTheNewItemThatAKilledJobHadTaken) {
  const auto staging = leaveStaging();
  fs::rename(newApp, staging / "new");
  fs::create_symlink(newApp, staging / "source");
  fs::create_symlink(std::to_string(statusOf(staging / "new").st_ino), staging / "source-inode");
  expectSuccess(replace(oldApp, newApp));
  expectReplaced();
}

TEST_F(ReplaceItem, DoesNotTakeTheOldItemForTheNewOneAfterAKilledJob) {
  // Killed after the exchange: what lies under the new item's name is the old one.
  const auto staging = leaveStaging();
  fs::create_symlink(newApp, staging / "source");
  fs::create_symlink(std::to_string(statusOf(newApp).st_ino), staging / "source-inode");
  fs::rename(oldApp, staging / "new");
  fs::rename(newApp, oldApp);
  expectRefusal(replace(oldApp, newApp), "nothing is at");
  EXPECT_EQ(read(oldApp / "Contents/Info.plist"), "version 2");
}

TEST_F(ReplaceItem, PutsBackTheOldItemOfAJobKilledBetweenItsTwoRenames) {
  const auto staging = leaveStaging();
  fs::create_symlink("App.app", staging / "destination");
  fs::rename(oldApp, staging / "old");
  expectRefusal(replace(oldApp, folder / "Missing"), "nothing is at");
  EXPECT_EQ(read(oldApp / "Contents/Info.plist"), "version 1");
}

TEST_F(ReplaceItem, LeavesTheStagingFolderOfARunningJobAlone) {
  const auto staging = leaveStaging();
  const int lock = ::open(staging.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(::flock(lock, LOCK_EX), 0);
  const auto answer = replace(oldApp, newApp);
  EXPECT_EQ(answer.status, 0) << answer.text;
  EXPECT_TRUE(isThere(staging));
  ::close(lock);
}

TEST_F(ReplaceItem, LeavesFoldersAloneThatOnlyResembleAStagingFolder) {
  const auto open = oldApp.parent_path() / ".kelto-staging-fedcba9876543210";
  fs::create_directory(open);  // others can enter it: not one of ours
  const auto answer = replace(oldApp, newApp);
  EXPECT_EQ(answer.status, 0) << answer.text;
  EXPECT_TRUE(isThere(open));
}

// Kills the tool before each call of one kind in turn.
class Killed : public ReplaceItem, public ::testing::WithParamInterface<const char*> {
 protected:
  void makeBothAnew() {
    fs::remove_all(oldApp.parent_path());
    fs::remove_all(newApp.parent_path());
    makeBundle(oldApp, "1");
    makeBundle(newApp, "2");
    fs::resize_file(result, 0);
  }
};
TEST_P(Killed, AtAnyPointLeavesTheWholeOldOrTheWholeNewItem) {
  int killed = 0;
  for (int when = 1;; ++when) {
    makeBothAnew();
    const auto oldTree = snapshot(oldApp);
    const auto newTree = snapshot(newApp);
    if (!injectFaults({std::string(GetParam()) + ":signal=KILL:when=" + std::to_string(when)})) {
      GTEST_SKIP() << "strace cannot trace here";
    }
    if (replace(oldApp, newApp).status == 0) break;
    ++killed;
    SCOPED_TRACE(std::string(GetParam()) + " " + std::to_string(when));
    const auto found = snapshot(oldApp);
    EXPECT_TRUE(found == oldTree || found == newTree);
    EXPECT_TRUE(read(result).empty() || found == newTree);
    fs::resize_file(result, 0);
    command = {Tool};
    // The next job finds its source where it was, unless the killed one had already brought it to the destination.
    if (found == oldTree) {
      expectSuccess(replace(oldApp, newApp));
    } else {
      expectRefusal(replace(oldApp, newApp), "nothing is at");
    }
    EXPECT_EQ(snapshot(oldApp), newTree);
  }
  EXPECT_GT(killed, 0);
}
INSTANTIATE_TEST_SUITE_P(ReplaceItem, Killed,
                         ::testing::Values("renameat2", "mkdirat", "symlinkat", "fsync", "unlinkat", "pwrite64"));

}  // namespace
}  // namespace ToolTests
