// Walks through trees: bounded in every way, and noticing when folders are moved under them.
#include "privileged/tool/TreeWalk.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "privileged/tool/Failure.h"
#include "tests/support/TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;
using namespace AssistantTool;
using ::testing::HasSubstr;

std::size_t openDescriptors() {
  return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

class TreeWalkTest : public ::testing::Test {
 protected:
  // A chain of folders of that length below `top`, made as deep as no path is long.
  void makeChain(const std::string& top, int levels) {
    posix::Descriptor folder(::open(root.c_str(), O_RDONLY | O_DIRECTORY));
    for (int i = 0; i < levels; ++i) {
      const char* name = i == 0 ? top.c_str() : "d";
      ASSERT_EQ(::mkdirat(folder.get(), name, 0755), 0) << "level " << i;
      folder = posix::Descriptor(::openat(folder.get(), name, O_RDONLY | O_DIRECTORY));
    }
  }
  static std::string failureOf(const std::function<void()>& act) {
    try {
      act();
      return "";
    } catch (const Failure& failure) {
      return failure.what();
    }
  }

  tests::TemporaryFolder temporary;
  fs::path root = temporary.path();
  posix::Descriptor parent{::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

class Recorder : public TreeVisitor {
 public:
  posix::Descriptor arrive(int folder, const FolderEntry& entry) override {
    auto opened = openIfFolder(folder, entry);
    ++arrived;
    descriptors = std::max(descriptors, openDescriptors());
    return opened;
  }
  void leave(int /*folder*/, const std::string& name, int /*opened*/) override {
    ++left;
    if (onLeave) onLeave(name);
  }

  int arrived = 0;
  int left = 0;
  std::size_t descriptors = 0;
  std::function<void(const std::string&)> onLeave;
};

TEST_F(TreeWalkTest, TakesAsManyLevelsAsItIsAllowed) {
  makeChain("exact", 50);
  makeChain("deeper", 51);
  EXPECT_NO_THROW(requireBounded(parent.get(), "exact", {.levels = 50}));
  EXPECT_THAT(failureOf([&] { requireBounded(parent.get(), "deeper", {.levels = 50}); }),
              HasSubstr("deeper than 50 folders"));
}

TEST_F(TreeWalkTest, TakesAsManyEntriesAsItIsAllowed) {
  fs::create_directory(root / "tree");
  for (int i = 0; i < 9; ++i) std::ofstream(root / "tree" / std::to_string(i));
  EXPECT_NO_THROW(requireBounded(parent.get(), "tree", {.entries = 10}));
  EXPECT_THAT(failureOf([&] { requireBounded(parent.get(), "tree", {.entries = 9}); }), HasSubstr("more than 9 files"));
  EXPECT_THAT(failureOf([&] { requireBounded(parent.get(), "tree", {.entries = 0}); }), HasSubstr("more than 0 files"));
}

TEST_F(TreeWalkTest, CountsTheEntriesOfAllFolders) {
  for (const char* name : {"tree/a/1", "tree/b/2", "tree/c/3"}) fs::create_directories(root / name);
  EXPECT_NO_THROW(requireBounded(parent.get(), "tree", {.entries = 7}));
  EXPECT_THAT(failureOf([&] { requireBounded(parent.get(), "tree", {.entries = 6}); }), HasSubstr("more than 6 files"));
}

TEST_F(TreeWalkTest, ArrivesAtEachEntryAndLeavesEachFolder) {
  makeChain("tree", 300);
  tests::writeFile(root / "tree/file", "");
  Recorder recorder;
  walkTree(parent.get(), "tree", recorder, {});
  EXPECT_EQ(recorder.arrived, 301);
  EXPECT_EQ(recorder.left, 300);
}

TEST_F(TreeWalkTest, HoldsAFixedNumberOfDescriptors) {
  makeChain("tree", 2000);
  const auto before = openDescriptors();
  Recorder recorder;
  walkTree(parent.get(), "tree", recorder, {});
  EXPECT_LT(recorder.descriptors, before + 40);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TreeWalkTest, DoesNotGoUpToAnotherFolderThanItCameFrom) {
  makeChain("tree", 100);
  fs::create_directory(root / "elsewhere");
  Recorder recorder;
  // At the deepest folder: what lies in the middle is moved, with the walk in it.
  recorder.onLeave = [&](const std::string&) {
    std::string middle = "tree";
    for (int i = 0; i < 20; ++i) middle += "/d";
    if (recorder.left == 1) fs::rename(root / middle, root / "elsewhere/d");
  };
  EXPECT_THAT(failureOf([&] { walkTree(parent.get(), "tree", recorder, {}); }), HasSubstr("was moved"));
  EXPECT_LT(recorder.left, 100);
}

TEST_F(TreeWalkTest, DoesNotFollowLinks) {
  fs::create_directories(root / "outside/inner");
  fs::create_directory(root / "tree");
  fs::create_directory_symlink(root / "outside", root / "tree/link");
  Recorder recorder;
  walkTree(parent.get(), "tree", recorder, {});
  EXPECT_EQ(recorder.arrived, 2);
  EXPECT_EQ(recorder.left, 1);
}

}  // namespace
