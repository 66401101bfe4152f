#include <fcntl.h>
#include <sys/xattr.h>

#include <functional>

#include "privileged/tool/Staging.h"
#include "tests/privileged/tool/ToolRun.h"
#include "tests/support/Environment.h"

namespace tests::tool {
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
  // Leaves a staging folder behind as a job does that was killed after `work`, which gets the folder's path as well.
  void leaveStaging(const std::function<void(AssistantTool::Staging&, const fs::path&)>& work) {
    AssistantTool::Staging staging(located(oldApp));
    work(staging, pathOf(staging));
    staging.keep();
  }
  static AssistantTool::Location located(const fs::path& path) {
    return AssistantTool::PathWalk(::getuid()).locate(path.string());
  }
  static fs::path pathOf(const AssistantTool::Staging& staging) {
    return fs::read_symlink("/proc/self/fd/" + std::to_string(staging.folder()));
  }
  // So that there is something to adopt, where that is possible.
  void giveOldAppAway() {
    const int given = ::lchown(oldApp.c_str(), 65534, 65534);
    EXPECT_EQ(given == 0, ::geteuid() == 0 || ::geteuid() == 65534);
  }
  // With many files the file system is synced as a whole. Single syncs are those of the journal, which is made by two
  // steps, of the notes, of the staging folder, and the one after the swap.
  static constexpr const char* syncOfTheSwap = "fsync:error=EIO:when=5";
  static constexpr const char* syncOfTheSwapAfterCopying = "fsync:error=EIO:when=4";  // nothing was moved there
  bool injectFaults(const std::vector<std::string>& faults) {
    command = withFaults(faults);
    return !command.empty();
  }
  tests::EnvironmentVariable stateFolder{"XDG_STATE_HOME", folder / "state"};  // of the test as of the tool
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

TEST_F(ReplaceItem, RefusesALinkInPlaceOfTheInstalledItem) {
  fs::rename(oldApp, folder / "Real.app");
  fs::create_directory_symlink(folder / "Real.app", oldApp);
  expectRefusal(replace(oldApp, newApp), "is a symbolic link");
  EXPECT_TRUE(fs::is_symlink(oldApp));
  EXPECT_EQ(read(folder / "Real.app/Contents/Info.plist"), "version 1");
  EXPECT_TRUE(isThere(newApp));
}

TEST_F(ReplaceItem, RefusesALinkInPlaceOfTheNewItem) {
  fs::rename(newApp, folder / "Real.app");
  fs::create_directory_symlink(folder / "Real.app", newApp);
  expectRefusal(replace(oldApp, newApp), "is a symbolic link");
  EXPECT_EQ(read(oldApp / "Contents/Info.plist"), "version 1");
  fs::remove_all(oldApp);
  expectRefusal(replace(oldApp, newApp), "is a symbolic link");
  EXPECT_FALSE(isThere(oldApp));
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

// Nothing of it changes its owner, but whoever has the other name could still change the installed file.
TEST_F(ReplaceItem, CopiesWhenAFileThatKeepsItsOwnerHasAnotherNameOutside) {
  const auto outside = folder / "outside";
  fs::create_hard_link(newApp / "Contents/Info.plist", outside);
  expectSuccess(replace(oldApp, newApp));
  expectReplaced();
  EXPECT_NE(statusOf(oldApp / "Contents/Info.plist").st_ino, statusOf(outside).st_ino);
}

TEST_F(ReplaceItem, KeepsHardLinksInside) {
  fs::create_hard_link(newApp / "Contents/Info.plist", newApp / "Contents/Second.plist");
  giveOldAppAway();
  expectSuccess(replace(oldApp, newApp));
  EXPECT_EQ(statusOf(oldApp / "Contents/Info.plist").st_ino, statusOf(oldApp / "Contents/Second.plist").st_ino);
  EXPECT_EQ(statusOf(oldApp / "Contents/Info.plist").st_nlink, 2U);
  EXPECT_EQ(statusOf(oldApp / "Contents/Info.plist").st_uid, statusOf(oldApp).st_uid) << "the old item's owner";
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
  for (int i = 0; i < 20; ++i) write(newApp / "Contents" / std::to_string(i), "file");
  if (!injectFaults({syncOfTheSwap})) GTEST_SKIP() << "strace cannot trace here";
  const auto wantedOld = snapshot(oldApp);
  const auto wantedNew = snapshot(newApp);
  expectRefusal(replace(oldApp, newApp), "cannot sync " + oldApp.parent_path().string());
  EXPECT_EQ(snapshot(oldApp), wantedOld);
  EXPECT_EQ(snapshot(newApp), wantedNew);
}

TEST_F(ReplaceItem, LeavesTheSourceItsSetIDBitsWhenTheSwapCannotBeSynced) {
  for (int i = 0; i < 20; ++i) write(newApp / "Contents" / std::to_string(i), "file");
  ASSERT_EQ(::chmod((newApp / "Contents/Linux/Controller").c_str(), 06755), 0);
  ASSERT_EQ(::chmod((newApp / "Contents/Resources").c_str(), 02755), 0);
  if (!injectFaults({syncOfTheSwapAfterCopying})) GTEST_SKIP() << "strace cannot trace here";
  const auto wanted = snapshot(newApp);
  expectRefusal(replace(oldApp, newApp), "cannot sync " + oldApp.parent_path().string());
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
  leaveStaging([](auto&, const fs::path& place) { write(place / "doomed/file", "half an old tree"); });
  expectSuccess(replace(oldApp, newApp));
  expectReplaced();
}

TEST_F(ReplaceItem, PutsBackTheNewItemThatAKilledJobHadTaken) {
  leaveStaging([&](auto& staging, const fs::path& place) {
    staging.noteSource(located(newApp), statusOf(newApp));
    fs::rename(newApp, place / "new");
  });
  expectSuccess(replace(oldApp, newApp));
  expectReplaced();
}

TEST_F(ReplaceItem, DoesNotTakeTheOldItemForTheNewOneAfterAKilledJob) {
  // Killed after the exchange: what lies under the new item's name is the old one.
  leaveStaging([&](auto& staging, const fs::path& place) {
    staging.noteSource(located(newApp), statusOf(newApp));
    fs::rename(oldApp, place / "new");
    fs::rename(newApp, oldApp);
  });
  expectRefusal(replace(oldApp, newApp), "nothing is at");
  EXPECT_EQ(read(oldApp / "Contents/Info.plist"), "version 2");
}

TEST_F(ReplaceItem, PutsBackTheOldItemOfAJobKilledBetweenItsTwoRenames) {
  leaveStaging([&](auto& staging, const fs::path& place) {
    staging.noteDestination("App.app");
    fs::rename(oldApp, place / "old");
  });
  expectRefusal(replace(oldApp, folder / "Missing"), "nothing is at");
  EXPECT_EQ(read(oldApp / "Contents/Info.plist"), "version 1");
}

TEST_F(ReplaceItem, LeavesTheStagingFolderOfARunningJobAlone) {
  const AssistantTool::Staging running(located(oldApp));
  const auto answer = replace(oldApp, newApp);
  EXPECT_EQ(answer.status, 0) << answer.text;
  EXPECT_TRUE(isThere(pathOf(running)));
}

TEST_F(ReplaceItem, LeavesFoldersAloneOfWhichNothingIsNoted) {
  const auto lookalike = oldApp.parent_path() / ".kelto-staging-fedcba9876543210";
  fs::create_directory(lookalike);
  fs::permissions(lookalike, fs::perms(0700));
  fs::create_symlink("App.app", lookalike / "destination");
  const auto answer = replace(oldApp, newApp);
  EXPECT_EQ(answer.status, 0) << answer.text;
  EXPECT_TRUE(isThere(lookalike / "destination"));
}

TEST_F(ReplaceItem, LeavesAFolderAloneThatTookTheNameOfAStagingFolder) {
  fs::path staging;
  leaveStaging([&](auto&, const fs::path& place) { staging = place; });
  fs::rename(staging, folder / "elsewhere");
  fs::create_directory(staging);
  fs::permissions(staging, fs::perms(0700));
  write(staging / "doomed", "somebody's");
  const auto answer = replace(oldApp, newApp);
  EXPECT_EQ(answer.status, 0) << answer.text;
  EXPECT_EQ(read(staging / "doomed"), "somebody's");
}

TEST_F(ReplaceItem, ForgetsAStagingFolderThatIsGone) {
  leaveStaging([](auto&, const fs::path& place) { fs::remove(place); });
  expectSuccess(replace(oldApp, newApp));
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
    command = {toolProgram};
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
}  // namespace tests::tool
