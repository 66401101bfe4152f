#pragma once
// The contract of FileManager.
//
// A World has: `files()`; `path(name)`, in a folder of the test's own that is empty at first; `write(path, contents,
// permissions)`; `permissionsOf(path)`; `homeFolder()`.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "platform/FileManager.h"

namespace tests::contracts {

template <class World>
class FileManagerContract : public testing::Test {
 protected:
  platform::FileManager& files() { return world.files(); }
  std::string path(const std::string& name = {}) { return world.path(name); }
  bool exists(const std::string& name) { return files().fileExistsAtPath(path(name)); }
  bool isFolder(const std::string& name) {
    bool isDirectory = false;
    return files().fileExistsAtPath(path(name), &isDirectory) && isDirectory;
  }
  bool makeFolder(const std::string& name, bool withIntermediates, std::int32_t permissions = 0755) {
    return files().createDirectoryAtPath(path(name), withIntermediates, {.posixPermissions = permissions}, &error);
  }

  World world;
  platform::Error error;
};

TYPED_TEST_SUITE_P(FileManagerContract);

TYPED_TEST_P(FileManagerContract, TellsDocumentsFromFolders) {
  this->world.write(this->path("document"), "text", 0644);
  bool isDirectory = true;
  EXPECT_TRUE(this->files().fileExistsAtPath(this->path("document"), &isDirectory));
  EXPECT_FALSE(isDirectory);
  EXPECT_TRUE(this->files().fileExistsAtPath(this->path(), &isDirectory));
  EXPECT_TRUE(isDirectory);
}

TYPED_TEST_P(FileManagerContract, LeavesTheFlagAloneWhenNothingExists) {
  bool isDirectory = true;
  EXPECT_FALSE(this->files().fileExistsAtPath(this->path("missing"), &isDirectory));
  EXPECT_TRUE(isDirectory);
}

TYPED_TEST_P(FileManagerContract, OnlyADocumentWithTheRightModeIsExecutable) {
  this->world.write(this->path("program"), "", 0755);
  this->world.write(this->path("text"), "", 0644);
  EXPECT_TRUE(this->files().isExecutableFileAtPath(this->path("program")));
  EXPECT_FALSE(this->files().isExecutableFileAtPath(this->path("text")));
  EXPECT_FALSE(this->files().isExecutableFileAtPath(this->path()));
  EXPECT_FALSE(this->files().isExecutableFileAtPath(this->path("missing")));
}

TYPED_TEST_P(FileManagerContract, ADocumentIsMadeEmptyWithThePermissionsAsGiven) {
  EXPECT_TRUE(this->files().createFileAtPath(this->path("new"), {.posixPermissions = 0666}));
  EXPECT_EQ(this->files().contentsAtPath(this->path("new")), "");
  EXPECT_EQ(this->world.permissionsOf(this->path("new")), 0666);
}

TYPED_TEST_P(FileManagerContract, AnExistingDocumentIsReplacedByAnEmptyOne) {
  this->world.write(this->path("document"), "text", 0600);
  EXPECT_TRUE(this->files().createFileAtPath(this->path("document"), {.posixPermissions = 0640}));
  EXPECT_EQ(this->files().contentsAtPath(this->path("document")), "");
  EXPECT_EQ(this->world.permissionsOf(this->path("document")), 0640);
}

TYPED_TEST_P(FileManagerContract, ADocumentIsNotMadeWhereAFolderStandsOrWithoutAFolderAboveIt) {
  ASSERT_TRUE(this->makeFolder("folder", false));
  EXPECT_FALSE(this->files().createFileAtPath(this->path("folder"), {}));
  EXPECT_FALSE(this->files().createFileAtPath(this->path("missing/new"), {}));
  EXPECT_TRUE(this->isFolder("folder"));
  EXPECT_FALSE(this->exists("missing"));
}

TYPED_TEST_P(FileManagerContract, NothingIsMadeOrChangedForAnUnknownAccount) {
  const platform::FileAttributes foreign{.ownerAccountName = "no such account"};
  this->world.write(this->path("document"), "text", 0644);
  EXPECT_FALSE(this->files().createFileAtPath(this->path("new"), foreign));
  EXPECT_FALSE(this->files().createDirectoryAtPath(this->path("folder"), true, foreign, nullptr));
  EXPECT_FALSE(this->files().setAttributes(foreign, this->path("document")));
  EXPECT_FALSE(this->exists("new"));
  EXPECT_FALSE(this->exists("folder"));
}

TYPED_TEST_P(FileManagerContract, AFolderIsMadeWithThePermissionsAsGiven) {
  EXPECT_TRUE(this->makeFolder("folder", false, 0777));
  EXPECT_TRUE(this->isFolder("folder"));
  EXPECT_EQ(this->world.permissionsOf(this->path("folder")), 0777);
}

TYPED_TEST_P(FileManagerContract, FoldersAboveANewOneGetItsPermissionsAndExistingOnesKeepTheirs) {
  ASSERT_TRUE(this->makeFolder("there", false, 0755));
  EXPECT_TRUE(this->makeFolder("there/a/b", true, 0700));
  EXPECT_EQ(this->world.permissionsOf(this->path("there")), 0755);
  EXPECT_EQ(this->world.permissionsOf(this->path("there/a")), 0700);
  EXPECT_EQ(this->world.permissionsOf(this->path("there/a/b")), 0700);
}

TYPED_TEST_P(FileManagerContract, AnExistingFolderIsSuccessOnlyWithIntermediatesAndKeepsItsPermissions) {
  ASSERT_TRUE(this->makeFolder("folder", false, 0750));
  EXPECT_TRUE(this->makeFolder("folder", true, 0777));
  EXPECT_EQ(this->world.permissionsOf(this->path("folder")), 0750);
  EXPECT_FALSE(this->makeFolder("folder", false, 0777));
  EXPECT_EQ(this->error.code, EEXIST);
  EXPECT_NE(this->error.description, "");
}

TYPED_TEST_P(FileManagerContract, AFolderWithoutOneAboveItIsMadeOnlyWithIntermediates) {
  EXPECT_FALSE(this->makeFolder("a/b", false));
  EXPECT_EQ(this->error.code, ENOENT);
  EXPECT_FALSE(this->exists("a"));
}

TYPED_TEST_P(FileManagerContract, ADocumentInTheWayOfAFolderIsAnErrorAndStays) {
  this->world.write(this->path("document"), "text", 0644);
  EXPECT_FALSE(this->makeFolder("document", true));
  EXPECT_EQ(this->error.code, EEXIST);
  EXPECT_FALSE(this->makeFolder("document/inner", true));
  EXPECT_EQ(this->error.code, ENOTDIR);
  EXPECT_FALSE(this->files().createDirectoryAtPath(this->path("document"), true, {}, nullptr));
  EXPECT_EQ(this->files().contentsAtPath(this->path("document")), "text");
}

TYPED_TEST_P(FileManagerContract, AttributesOfAnExistingItemAreSet) {
  this->world.write(this->path("document"), "text", 0644);
  EXPECT_TRUE(this->files().setAttributes({.posixPermissions = 0600}, this->path("document")));
  EXPECT_EQ(this->world.permissionsOf(this->path("document")), 0600);
  EXPECT_TRUE(this->files().setAttributes({}, this->path("document")));
  EXPECT_EQ(this->world.permissionsOf(this->path("document")), 0600);
  EXPECT_FALSE(this->files().setAttributes({.posixPermissions = 0600}, this->path("missing")));
}

TYPED_TEST_P(FileManagerContract, AFolderIsRemovedWithAllThatItHoldsAndItsNeighboursStay) {
  ASSERT_TRUE(this->makeFolder("folder/inner", true));
  this->world.write(this->path("folder/inner/document"), "text", 0644);
  this->world.write(this->path("folder.txt"), "text", 0644);
  EXPECT_TRUE(this->files().removeItemAtPath(this->path("folder")));
  EXPECT_FALSE(this->exists("folder"));
  EXPECT_FALSE(this->exists("folder/inner/document"));
  EXPECT_TRUE(this->exists("folder.txt"));
  EXPECT_TRUE(this->files().removeItemAtPath(this->path("folder.txt")));
  EXPECT_FALSE(this->files().removeItemAtPath(this->path("folder.txt")));
}

TYPED_TEST_P(FileManagerContract, OnlyADocumentHasContents) {
  this->world.write(this->path("document"), std::string("a\0b", 3), 0644);
  EXPECT_EQ(this->files().contentsAtPath(this->path("document")), std::string("a\0b", 3));
  EXPECT_EQ(this->files().contentsAtPath(this->path()), std::nullopt);
  EXPECT_EQ(this->files().contentsAtPath(this->path("missing")), std::nullopt);
}

TYPED_TEST_P(FileManagerContract, AnUnusedNameFillsTheTemplateAndMakesNothing) {
  const auto first = this->files().unusedName(this->path("nameXXXXXXXXXX"));
  const auto second = this->files().unusedName(this->path("nameXXXXXXXXXX"));
  EXPECT_THAT(first, testing::StartsWith(this->path("name")));
  EXPECT_EQ(first.size(), this->path("nameXXXXXXXXXX").size());
  EXPECT_NE(first, this->path("nameXXXXXXXXXX"));
  EXPECT_NE(first, second);
  EXPECT_FALSE(this->files().fileExistsAtPath(first));
  EXPECT_EQ(this->files().unusedName(this->path("name")), "");
}

TYPED_TEST_P(FileManagerContract, AFolderInTheHomeFolderIsWrittenWithATildeWhenAskedFor) {
  constexpr auto kind = platform::SearchPathDirectory::application;
  constexpr auto both = platform::NSUserDomainMask | platform::NSLocalDomainMask;
  EXPECT_THAT(this->files().searchPathForDirectories(kind, both, true),
              testing::ElementsAre(this->world.homeFolder() + "/Applications", "/Applications"));
  EXPECT_THAT(this->files().searchPathForDirectories(kind, both, false),
              testing::ElementsAre("~/Applications", "/Applications"));
  EXPECT_THAT(this->files().searchPathForDirectories(kind, platform::NSLocalDomainMask, false),
              testing::ElementsAre("/Applications"));
  EXPECT_THAT(
      this->files().searchPathForDirectories(platform::SearchPathDirectory::library, platform::NSLocalDomainMask, true),
      testing::IsEmpty());
}

TYPED_TEST_P(FileManagerContract, AnItemOnALocalVolumeHasAFileURLAndAMissingOneHasNone) {
  this->world.write(this->path("document"), "text", 0644);
  const auto url = this->files().volumeURLForPath(this->path("document"));
  ASSERT_TRUE(url);
  EXPECT_THAT(*url, testing::StartsWith("file://"));
  EXPECT_EQ(this->files().volumeURLForPath(this->path("missing")), std::nullopt);
}

REGISTER_TYPED_TEST_SUITE_P(FileManagerContract, TellsDocumentsFromFolders, LeavesTheFlagAloneWhenNothingExists,
                            OnlyADocumentWithTheRightModeIsExecutable, ADocumentIsMadeEmptyWithThePermissionsAsGiven,
                            AnExistingDocumentIsReplacedByAnEmptyOne,
                            ADocumentIsNotMadeWhereAFolderStandsOrWithoutAFolderAboveIt,
                            NothingIsMadeOrChangedForAnUnknownAccount, AFolderIsMadeWithThePermissionsAsGiven,
                            FoldersAboveANewOneGetItsPermissionsAndExistingOnesKeepTheirs,
                            AnExistingFolderIsSuccessOnlyWithIntermediatesAndKeepsItsPermissions,
                            AFolderWithoutOneAboveItIsMadeOnlyWithIntermediates,
                            ADocumentInTheWayOfAFolderIsAnErrorAndStays, AttributesOfAnExistingItemAreSet,
                            AFolderIsRemovedWithAllThatItHoldsAndItsNeighboursStay, OnlyADocumentHasContents,
                            AnUnusedNameFillsTheTemplateAndMakesNothing,
                            AFolderInTheHomeFolderIsWrittenWithATildeWhenAskedFor,
                            AnItemOnALocalVolumeHasAFileURLAndAMissingOneHasNone);

}  // namespace tests::contracts
