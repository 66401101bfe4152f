#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fake/FakePlatform.h"
#include "privileged/NSFileManager+Extensions.h"

using namespace NSFileManager::Extensions;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class NSFileManagerExtensions : public testing::Test {
 protected:
  void SetUp() override {
    fake.enableDebugLogging();
    fake.files.addFolder("/folder");
    fake.files.addFile("/document", "text");
  }

  platform::fake::FakePlatform fake;
};

}  // namespace

TEST_F(NSFileManagerExtensions, RequiringAFileSaysYesForADocumentAndLogsNothing) {
  EXPECT_TRUE(requireFileAtPath(fake.files, "/document"));
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
}

TEST_F(NSFileManagerExtensions, RequiringAFileWhereAFolderStandsIsLogged) {
  EXPECT_FALSE(requireFileAtPath(fake.files, "/folder"));
  EXPECT_THAT(fake.systemLog.lines,
              ElementsAre(AllOf(StartsWith("<Debug> [NSFileManager(0x"),
                                EndsWith(") requireFileAtPath:]:46 /folder is a folder, not a document"))));
}

TEST_F(NSFileManagerExtensions, RequiringAMissingFileIsNotLogged) {
  EXPECT_FALSE(requireFileAtPath(fake.files, "/missing"));
  EXPECT_FALSE(requireDirectoryAtPath(fake.files, "/missing"));
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
}

TEST_F(NSFileManagerExtensions, RequiringAFolderSaysYesForAFolder) {
  EXPECT_TRUE(requireDirectoryAtPath(fake.files, "/folder"));
}

TEST_F(NSFileManagerExtensions, RequiringAFolderWhereADocumentStandsIsLogged) {
  EXPECT_FALSE(requireDirectoryAtPath(fake.files, "/document"));
  EXPECT_THAT(fake.systemLog.lines,
              ElementsAre(EndsWith(") requireDirectoryAtPath:]:64 /document is a document, not a folder")));
}

TEST_F(NSFileManagerExtensions, AnExistingFolderKeepsItsPermissions) {
  fake.files.items["/folder"].attributes.posixPermissions = 0700;
  EXPECT_TRUE(createFolderIfNeededAtPath_permissions(fake.files, "/folder", 0755));
  EXPECT_EQ(fake.files.items["/folder"].attributes.posixPermissions, 0700);
}

TEST_F(NSFileManagerExtensions, AnExistingDocumentKeepsItsContentsAndPermissions) {
  fake.files.items["/document"].attributes.posixPermissions = 0600;
  EXPECT_TRUE(createFileIfNeededAtPath_permissions(fake.files, "/document", 0666));
  EXPECT_EQ(fake.files.items["/document"].contents, "text");
  EXPECT_EQ(fake.files.items["/document"].attributes.posixPermissions, 0600);
}

TEST_F(NSFileManagerExtensions, AFileWhereAFolderStandsIsNotCreated) {
  EXPECT_FALSE(createFileIfNeededAtPath_permissions(fake.files, "/folder", 0666));
  EXPECT_TRUE(fake.files.items["/folder"].isDirectory);
}

TEST_F(NSFileManagerExtensions, AMissingFileIsCreatedWithItsPermissions) {
  EXPECT_TRUE(createFileIfNeededAtPath_permissions(fake.files, "/new", 0640));
  EXPECT_EQ(fake.files.items["/new"].attributes.posixPermissions, 0640);
}

TEST_F(NSFileManagerExtensions, AMissingFolderIsCreatedWithTheFoldersAboveIt) {
  EXPECT_TRUE(createFolderIfNeededAtPath_permissions_ownerName_groupName(fake.files, "/a/b/c", 0750, "root", "adm"));
  EXPECT_TRUE(fake.files.items["/a/b"].isDirectory);
  EXPECT_EQ(
      fake.files.items["/a/b/c"].attributes,
      (platform::FileAttributes{.posixPermissions = 0750, .ownerAccountName = "root", .groupOwnerAccountName = "adm"}));
}

TEST_F(NSFileManagerExtensions, TheFoldersAboveANewOneGetItsAttributesToo) {
  EXPECT_TRUE(createFolderIfNeededAtPath_permissions(fake.files, "/a/b/c", 0700));
  for (const char* path : {"/a", "/a/b", "/a/b/c"})
    EXPECT_EQ(fake.files.items.at(path).attributes.posixPermissions, 0700) << path;
}

TEST_F(NSFileManagerExtensions, AnUnknownOwnerIsAFailureAndMakesNothing) {
  EXPECT_FALSE(createFolderIfNeededAtPath_permissions_ownerName_groupName(fake.files, "/a", 0750, "nobody here", "adm"));
  EXPECT_FALSE(fake.files.items.contains("/a"));
  EXPECT_FALSE(changePath_toOwnerName_andGroupName(fake.files, "/document", "nobody here", "adm"));
}

TEST_F(NSFileManagerExtensions, AFileThatCannotBeMadeIsAFailure) {
  EXPECT_FALSE(createFileIfNeededAtPath_permissions(fake.files, "/missing/new", 0640));
  fake.files.refusesToCreateFiles = true;
  EXPECT_FALSE(createFileIfNeededAtPath_permissions(fake.files, "/new", 0640));
}

TEST_F(NSFileManagerExtensions, WithoutAnOwnerTheGroupIsLeftOutToo) {
  EXPECT_TRUE(createFolderIfNeededAtPath_permissions_ownerName_groupName(fake.files, "/a", 0750, std::nullopt, "adm"));
  EXPECT_EQ(fake.files.items["/a"].attributes, (platform::FileAttributes{.posixPermissions = 0750}));
}

TEST_F(NSFileManagerExtensions, AFolderIsNotCreatedWhereADocumentStands) {
  EXPECT_FALSE(createFolderIfNeededAtPath_permissions(fake.files, "/document", 0755));
}

TEST_F(NSFileManagerExtensions, ChangingOwnerAndGroupSetsBoth) {
  EXPECT_TRUE(changePath_toOwnerName_andGroupName(fake.files, "/document", "root", "adm"));
  EXPECT_EQ(fake.files.items["/document"].attributes.ownerAccountName, "root");
  EXPECT_EQ(fake.files.items["/document"].attributes.groupOwnerAccountName, "adm");
}

TEST_F(NSFileManagerExtensions, ChangingWithoutAnOwnerLeavesBothOut) {
  EXPECT_TRUE(changePath_toOwnerName_andGroupName(fake.files, "/document", std::nullopt, "adm"));
  EXPECT_EQ(fake.files.items["/document"].attributes, platform::FileAttributes{});
}

TEST_F(NSFileManagerExtensions, ChangingAMissingItemFails) {
  EXPECT_FALSE(changePath_toOwnerName_andGroupName(fake.files, "/missing", "root", "adm"));
}
