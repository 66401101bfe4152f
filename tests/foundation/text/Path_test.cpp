#include "foundation/text/Path.h"

#include <gtest/gtest.h>

using namespace foundation;

TEST(Path, LastComponentIgnoresTrailingSlashes) {
  EXPECT_EQ(Path::lastComponent("/Applications/App.app"), "App.app");
  EXPECT_EQ(Path::lastComponent("/Applications/App.app//"), "App.app");
  EXPECT_EQ(Path::lastComponent("App.app"), "App.app");
  EXPECT_EQ(Path::lastComponent("/"), "/");
  EXPECT_EQ(Path::lastComponent(""), "");
}

TEST(Path, DeletingTheLastComponentLeavesTheFolder) {
  EXPECT_EQ(Path::deletingLastComponent("/Applications/App.app"), "/Applications");
  EXPECT_EQ(Path::deletingLastComponent("/Applications//App.app/"), "/Applications");
  EXPECT_EQ(Path::deletingLastComponent("/App.app"), "/");
  EXPECT_EQ(Path::deletingLastComponent("/"), "/");
  EXPECT_EQ(Path::deletingLastComponent("App.app"), "");
}

TEST(Path, DeletingTheExtensionKeepsNamesThatAreAllExtension) {
  EXPECT_EQ(Path::deletingExtension("App.app"), "App");
  EXPECT_EQ(Path::deletingExtension("/a.b/App"), "/a.b/App");
  EXPECT_EQ(Path::deletingExtension("App.2.app"), "App.2");
  EXPECT_EQ(Path::deletingExtension(".app"), ".app");
}

TEST(Path, AppendingPutsExactlyOneSlashBetween) {
  EXPECT_EQ(Path::appending("/tmp", "/KeltoXX"), "/tmp/KeltoXX");
  EXPECT_EQ(Path::appending("/tmp/", "a"), "/tmp/a");
  EXPECT_EQ(Path::appending("/", "a"), "/a");
  EXPECT_EQ(Path::appending("", "a"), "a");
}
