#include "posix/RemoveTree.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "posix/Descriptor.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using posix::LockedFolders;

constexpr uid_t ordinaryUser = 54321;

class RemoveTree : public ::testing::Test {
 protected:
  bool remove(const std::string& name, LockedFolders locked = LockedFolders::areKept) {
    return posix::removeTree(parent.get(), name, locked);
  }
  // Does `act` at that call of the removal; the first is when "tree" was found to be a folder, which is opened next.
  bool removeWith(const std::function<void()>& act, int atCall = 1) {
    int calls = 0;
    return posix::removeTree(parent.get(), "tree", LockedFolders::areKept, [&] {
      if (++calls == atCall) act();
    });
  }
  // A chain of folders below `top`, deeper than any path is long.
  void makeChain(const std::string& top, int levels) const {
    posix::Descriptor folder(::open(root.c_str(), O_RDONLY | O_DIRECTORY));
    for (int i = 0; i < levels; ++i) {
      const char* name = i == 0 ? top.c_str() : "d";
      ASSERT_EQ(::mkdirat(folder.get(), name, 0755), 0) << "level " << i;
      folder = posix::Descriptor(::openat(folder.get(), name, O_RDONLY | O_DIRECTORY));
    }
  }
  // Runs `act` in a child.
  static bool inChild(const std::function<bool()>& act) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(act() ? 0 : 1);
    int status = 0;
    ::waitpid(child, &status, 0);
    return status == 0;
  }
  // Removes it as a user who is not root.
  bool removeAsUser(const std::string& name, LockedFolders locked) {
    return inChild([&] { return (::geteuid() != 0 || ::setuid(ordinaryUser) == 0) && remove(name, locked); });
  }
  void giveToUser(const std::string& name) const {
    const int given = ::geteuid() == 0 ? ::chown((root / name).c_str(), ordinaryUser, ordinaryUser) : 0;
    EXPECT_EQ(given, 0) << name;
  }
  void makeLockedTree() const {
    fs::create_directories(root / "tree/locked");
    tests::writeFile(root / "tree/locked/document", "x");
    for (const char* name : {"", "tree", "tree/locked", "tree/locked/document"}) giveToUser(name);
    fs::permissions(root / "tree/locked", fs::perms(0500));
  }

  tests::TemporaryFolder temporary;
  fs::path root = temporary.path();
  posix::Descriptor parent{::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

TEST_F(RemoveTree, RemovesAFileALinkAPipeAndAFolder) {
  tests::writeFile(root / "file", "x");
  fs::create_symlink("nowhere", root / "link");
  ASSERT_EQ(::mkfifo((root / "pipe").c_str(), 0600), 0);
  fs::create_directories(root / "folder/inner/.hidden");
  tests::writeFile(root / "folder/inner/file", "x");
  for (const char* name : {"file", "link", "pipe", "folder", "missing"}) EXPECT_TRUE(remove(name)) << name;
  EXPECT_TRUE(fs::is_empty(root));
}

TEST_F(RemoveTree, LeavesWhereLinksLead) {
  fs::create_directories(root / "outside/inner");
  fs::create_directory(root / "tree");
  fs::create_directory_symlink(root / "outside", root / "tree/link");
  EXPECT_TRUE(remove("tree"));
  EXPECT_TRUE(fs::exists(root / "outside/inner"));
}

TEST_F(RemoveTree, NeedsFewDescriptorsAtAnyDepth) {
  makeChain("tree", 5000);
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit few{64, before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &few);
  EXPECT_TRUE(remove("tree"));
  ::setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_TRUE(fs::is_empty(root));
}

TEST_F(RemoveTree, KeepsALockedFolderAndGoesOnWithTheRest) {
  makeLockedTree();
  fs::create_directories(root / "tree/a");
  fs::create_directories(root / "tree/z");
  for (const char* name : {"tree/a", "tree/z"}) giveToUser(name);
  EXPECT_FALSE(removeAsUser("tree", LockedFolders::areKept));
  EXPECT_TRUE(fs::exists(root / "tree/locked/document"));
  EXPECT_FALSE(fs::exists(root / "tree/a"));
  EXPECT_FALSE(fs::exists(root / "tree/z"));
  fs::permissions(root / "tree/locked", fs::perms(0700));
}

TEST_F(RemoveTree, OpensALockedFolderWhenAsked) {
  makeLockedTree();
  EXPECT_TRUE(removeAsUser("tree", LockedFolders::areOpened));
  EXPECT_FALSE(fs::exists(root / "tree"));
}

TEST_F(RemoveTree, DoesNotEnterAMount) {
  fs::create_directories(root / "tree/mount");
  fs::create_directory(root / "elsewhere");
  tests::writeFile(root / "elsewhere/file", "x");
  const bool isMounted = inChild([&] {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
    if (::mount((root / "elsewhere").c_str(), (root / "tree/mount").c_str(), nullptr, MS_BIND, nullptr) != 0) return false;
    const posix::Descriptor inside(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const bool isRemoved = posix::removeTree(inside.get(), "tree", LockedFolders::areKept);
    return !isRemoved && fs::exists(root / "tree/mount/file");
  });
  if (!isMounted && ::geteuid() != 0) GTEST_SKIP() << "only root mounts";
  EXPECT_TRUE(isMounted) << "the mount was entered";
  EXPECT_TRUE(fs::exists(root / "elsewhere/file"));
}

TEST_F(RemoveTree, DoesNotFollowALinkThatTookAFoldersPlace) {
  fs::create_directory(root / "tree");
  fs::create_directory(root / "precious");
  tests::writeFile(root / "precious/file", "x");
  EXPECT_FALSE(removeWith([&] {
    fs::rename(root / "tree", root / "away");
    fs::create_directory_symlink("precious", root / "tree");
  }));
  EXPECT_TRUE(fs::exists(root / "precious/file"));
}

TEST_F(RemoveTree, DoesNotWaitForAPipeThatTookAFoldersPlace) {
  fs::create_directory(root / "tree");
  EXPECT_TRUE(inChild([&] {
    ::alarm(20);
    return !removeWith([&] {
      fs::rename(root / "tree", root / "away");
      EXPECT_EQ(::mkfifo((root / "tree").c_str(), 0600), 0);
    });
  })) << "the pipe was opened";
}

TEST_F(RemoveTree, DoesNotEnterAFolderOutside) {
  fs::create_directory(root / "tree");
  fs::create_directory(root / "outside");
  tests::writeFile(root / "outside/file", "x");
  const posix::Descriptor tree(::open((root / "tree").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  EXPECT_FALSE(posix::removeTree(tree.get(), "../outside", LockedFolders::areKept));
  EXPECT_TRUE(fs::exists(root / "outside/file"));
}

// Whichever of the two comes first is moved, and on the way back up a folder of the other one's name is there.
TEST_F(RemoveTree, StopsWhenAFolderWasMovedMeanwhile) {
  for (const char* name : {"tree/one", "tree/two", "other/one", "other/two"}) {
    fs::create_directories(root / name);
    tests::writeFile(root / name / "file", "x");
  }
  const auto moveTheEmptied = [&] {
    for (const char* name : {"one", "two"})
      if (fs::is_empty(root / "tree" / name)) fs::rename(root / "tree" / name, root / "other/moved");
  };
  EXPECT_FALSE(removeWith(moveTheEmptied, 3));
  EXPECT_TRUE(fs::exists(root / "other/moved"));
  for (const char* name : {"one", "two"}) EXPECT_TRUE(fs::exists(root / "other" / name / "file")) << name;
}

TEST_F(RemoveTree, TellsOfEachEntry) {
  fs::create_directories(root / "tree/a/b");
  for (const char* name : {"tree/1", "tree/a/2", "tree/a/b/3"}) tests::writeFile(root / name, "x");
  int entries = 0;
  EXPECT_TRUE(posix::removeTree(parent.get(), "tree", LockedFolders::areKept, [&] { ++entries; }));
  EXPECT_EQ(entries, 6);
}

TEST_F(RemoveTree, EmptiesAFolderAndKeepsIt) {
  makeChain("tree", 3);
  tests::writeFile(root / "tree/file", "x");
  const posix::Descriptor tree(::open((root / "tree").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  int entries = 0;
  EXPECT_TRUE(posix::emptyFolder(tree.get(), LockedFolders::areKept, [&] { ++entries; }));
  EXPECT_TRUE(fs::is_empty(root / "tree"));
  EXPECT_EQ(entries, 3);
}

}  // namespace
