#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fake/FakePlatform.h"
#include "privileged/NSFileManager+Extensions.h"
#include "privileged/NSFileManager+Kelto.h"
#include "privileged/NSString+KAPathExtensions.h"

using namespace NSFileManager::Extensions;
using namespace NSFileManager::Kelto;
using platform::SearchPathDirectory;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

class FileHelpers : public testing::Test {
 protected:
  void SetUp() override {
    fake.enableDebugLogging();
    fake.files.addFolder("/folder");
    fake.files.addFile("/document", "text");
  }

  platform::fake::FakePlatform fake;
};

}  // namespace

TEST_F(FileHelpers, TemporaryPathIsAFreshNameInTheTemporaryFolderAndMakesNothing) {
  const auto before = fake.files.items.size();
  const auto path = NSString::KAPathExtensions::temporaryPath(fake.files);
  EXPECT_THAT(path, MatchesRegex("/tmp/Kelto[^/X]{10}"));
  EXPECT_NE(NSString::KAPathExtensions::temporaryPath(fake.files), path);
  EXPECT_EQ(fake.files.items.size(), before);
}

TEST_F(FileHelpers, TemporaryPathsOfAnyLengthAreWhole) {
  fake.files.temporaryFolder = "/" + std::string(4000, 'd');
  EXPECT_EQ(NSString::KAPathExtensions::temporaryPath(fake.files).size(), 4001U + 16U);
}

TEST_F(FileHelpers, RequiringAFileSaysYesForADocumentAndLogsNothing) {
  EXPECT_TRUE(requireFileAtPath(fake.files, "/document"));
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
}

TEST_F(FileHelpers, RequiringAFileWhereAFolderStandsIsLogged) {
  EXPECT_FALSE(requireFileAtPath(fake.files, "/folder"));
  EXPECT_THAT(fake.systemLog.lines,
              ElementsAre(AllOf(StartsWith("<Debug> [NSFileManager(0x"),
                                EndsWith(") requireFileAtPath:]:46 /folder is a folder, not a document"))));
}

TEST_F(FileHelpers, RequiringAMissingFileIsNotLogged) {
  EXPECT_FALSE(requireFileAtPath(fake.files, "/missing"));
  EXPECT_FALSE(requireDirectoryAtPath(fake.files, "/missing"));
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
}

TEST_F(FileHelpers, RequiringAFolderSaysYesForAFolder) { EXPECT_TRUE(requireDirectoryAtPath(fake.files, "/folder")); }

TEST_F(FileHelpers, RequiringAFolderWhereADocumentStandsIsLogged) {
  EXPECT_FALSE(requireDirectoryAtPath(fake.files, "/document"));
  EXPECT_THAT(fake.systemLog.lines,
              ElementsAre(EndsWith(") requireDirectoryAtPath:]:64 /document is a document, not a folder")));
}

TEST_F(FileHelpers, AnExistingFolderKeepsItsPermissions) {
  fake.files.items["/folder"].attributes.posixPermissions = 0700;
  EXPECT_TRUE(createFolderIfNeededAtPath_permissions(fake.files, "/folder", 0755));
  EXPECT_EQ(fake.files.items["/folder"].attributes.posixPermissions, 0700);
}

TEST_F(FileHelpers, AnExistingDocumentKeepsItsContentsAndPermissions) {
  fake.files.items["/document"].attributes.posixPermissions = 0600;
  EXPECT_TRUE(createFileIfNeededAtPath_permissions(fake.files, "/document", 0666));
  EXPECT_EQ(fake.files.items["/document"].contents, "text");
  EXPECT_EQ(fake.files.items["/document"].attributes.posixPermissions, 0600);
}

TEST_F(FileHelpers, AFileWhereAFolderStandsIsNotCreated) {
  EXPECT_FALSE(createFileIfNeededAtPath_permissions(fake.files, "/folder", 0666));
  EXPECT_TRUE(fake.files.items["/folder"].isDirectory);
}

TEST_F(FileHelpers, AMissingFileIsCreatedWithItsPermissions) {
  EXPECT_TRUE(createFileIfNeededAtPath_permissions(fake.files, "/new", 0640));
  EXPECT_EQ(fake.files.items["/new"].attributes.posixPermissions, 0640);
}

TEST_F(FileHelpers, AMissingFolderIsCreatedWithTheFoldersAboveIt) {
  EXPECT_TRUE(createFolderIfNeededAtPath_permissions_ownerName_groupName(fake.files, "/a/b/c", 0750, "root", "adm"));
  EXPECT_TRUE(fake.files.items["/a/b"].isDirectory);
  EXPECT_EQ(
      fake.files.items["/a/b/c"].attributes,
      (platform::FileAttributes{.posixPermissions = 0750, .ownerAccountName = "root", .groupOwnerAccountName = "adm"}));
}

TEST_F(FileHelpers, TheFoldersAboveANewOneGetItsAttributesToo) {
  EXPECT_TRUE(createFolderIfNeededAtPath_permissions(fake.files, "/a/b/c", 0700));
  for (const char* path : {"/a", "/a/b", "/a/b/c"})
    EXPECT_EQ(fake.files.items.at(path).attributes.posixPermissions, 0700) << path;
}

TEST_F(FileHelpers, AnUnknownOwnerIsAFailureAndMakesNothing) {
  EXPECT_FALSE(createFolderIfNeededAtPath_permissions_ownerName_groupName(fake.files, "/a", 0750, "nobody here", "adm"));
  EXPECT_FALSE(fake.files.items.contains("/a"));
  EXPECT_FALSE(changePath_toOwnerName_andGroupName(fake.files, "/document", "nobody here", "adm"));
}

TEST_F(FileHelpers, AFileThatCannotBeMadeIsAFailure) {
  EXPECT_FALSE(createFileIfNeededAtPath_permissions(fake.files, "/missing/new", 0640));
  fake.files.refusesToCreateFiles = true;
  EXPECT_FALSE(createFileIfNeededAtPath_permissions(fake.files, "/new", 0640));
}

TEST_F(FileHelpers, WithoutAnOwnerTheGroupIsLeftOutToo) {
  EXPECT_TRUE(createFolderIfNeededAtPath_permissions_ownerName_groupName(fake.files, "/a", 0750, std::nullopt, "adm"));
  EXPECT_EQ(fake.files.items["/a"].attributes, (platform::FileAttributes{.posixPermissions = 0750}));
}

TEST_F(FileHelpers, AFolderIsNotCreatedWhereADocumentStands) {
  EXPECT_FALSE(createFolderIfNeededAtPath_permissions(fake.files, "/document", 0755));
}

TEST_F(FileHelpers, ChangingOwnerAndGroupSetsBoth) {
  EXPECT_TRUE(changePath_toOwnerName_andGroupName(fake.files, "/document", "root", "adm"));
  EXPECT_EQ(fake.files.items["/document"].attributes.ownerAccountName, "root");
  EXPECT_EQ(fake.files.items["/document"].attributes.groupOwnerAccountName, "adm");
}

TEST_F(FileHelpers, ChangingWithoutAnOwnerLeavesBothOut) {
  EXPECT_TRUE(changePath_toOwnerName_andGroupName(fake.files, "/document", std::nullopt, "adm"));
  EXPECT_EQ(fake.files.items["/document"].attributes, platform::FileAttributes{});
}

TEST_F(FileHelpers, ChangingAMissingItemFails) {
  EXPECT_FALSE(changePath_toOwnerName_andGroupName(fake.files, "/missing", "root", "adm"));
}

class StandardFolders : public FileHelpers {
 protected:
  void SetUp() override {
    FileHelpers::SetUp();
    fake.files.searchPaths[{SearchPathDirectory::caches, platform::NSUserDomainMask}] = {"/home/me/.cache", "/other"};
  }

  std::optional<platform::Error> error{platform::Error{1, "before"}};
  const std::optional<platform::Error> before = error;
};

TEST_F(StandardFolders, AMissingFolderIsCreatedAndTheErrorCleared) {
  EXPECT_EQ(findOrCreateDirectory_appendPathComponent_error(fake.files, SearchPathDirectory::caches, "Kelto", &error),
            "/home/me/.cache/Kelto");
  EXPECT_TRUE(fake.files.items["/home/me/.cache/Kelto"].isDirectory);
  EXPECT_EQ(error, std::nullopt);
}

TEST_F(StandardFolders, TheTildeIsExpanded) {
  fake.files.homeFolder = "/home/me";
  EXPECT_EQ(findOrCreateDirectory_appendPathComponent_error(fake.files, SearchPathDirectory::caches, "Kelto", &error),
            "/home/me/.cache/Kelto");
}

TEST_F(StandardFolders, TheFolderIsSearchedInTheUsersDomainAlone) {
  fake.files.searchPaths[{SearchPathDirectory::application, platform::NSLocalDomainMask}] = {"/Applications"};
  EXPECT_EQ(
      findOrCreateDirectory_appendPathComponent_error(fake.files, SearchPathDirectory::application, std::nullopt, &error),
      std::nullopt);
}

TEST_F(StandardFolders, FoldersAreMadeWithTheUsualPermissions) {
  findOrCreateDirectory_appendPathComponent_error(fake.files, SearchPathDirectory::caches, "Kelto", &error);
  for (const char* path : {"/home", "/home/me/.cache", "/home/me/.cache/Kelto"})
    EXPECT_EQ(fake.files.items.at(path).attributes, (platform::FileAttributes{.posixPermissions = 0755})) << path;
}

TEST_F(StandardFolders, AnExistingFolderIsFoundAndTheErrorCleared) {
  fake.files.addFolder("/home/me/.cache");
  EXPECT_EQ(findOrCreateDirectory_appendPathComponent_error(fake.files, SearchPathDirectory::caches, std::nullopt, &error),
            "/home/me/.cache");
  EXPECT_EQ(error, std::nullopt);
}

TEST_F(StandardFolders, ADocumentInTheWayGivesNothingAndLeavesTheErrorUntouched) {
  fake.files.addFile("/home/me/.cache/Kelto");
  EXPECT_EQ(findOrCreateDirectory_appendPathComponent_error(fake.files, SearchPathDirectory::caches, "Kelto", &error),
            std::nullopt);
  EXPECT_EQ(error, before);
}

TEST_F(StandardFolders, AKindWithoutFoldersGivesNothingAndLeavesTheErrorUntouched) {
  EXPECT_EQ(findOrCreateDirectory_inDomain_appendPathComponent_error(fake.files, SearchPathDirectory::library,
                                                                     platform::NSLocalDomainMask, "Kelto", &error),
            std::nullopt);
  EXPECT_EQ(error, before);
}

TEST_F(StandardFolders, AFailedCreationStoresThePlatformsError) {
  fake.files.createDirectoryError = platform::Error{13, "Permission denied"};
  EXPECT_EQ(findOrCreateDirectory_appendPathComponent_error(fake.files, SearchPathDirectory::caches, "Kelto", &error),
            std::nullopt);
  EXPECT_EQ(error, (platform::Error{13, "Permission denied"}));
  EXPECT_EQ(findOrCreateDirectory_appendPathComponent_error(fake.files, SearchPathDirectory::caches, "Kelto", nullptr),
            std::nullopt);
}

class LocalVolumes : public FileHelpers {
 protected:
  void SetUp() override {
    for (const char* path : {"/home/me/a b.txt", "/my disk/a", "/net/a", "/network"}) fake.files.addFile(path);
    fake.files.volumes["/"] = "file:///";
    fake.files.volumes["/net"] = "nfs://server/export";
    fake.files.volumes["/my disk"] = "file:///my%20disk/";
  }
};

TEST_F(LocalVolumes, AFileOnALocalVolumeIsLocal) {
  EXPECT_TRUE(isItemAtURLOnLocalFilesystem(fake.files, "file:///home/me/a%20b.txt"));
  EXPECT_TRUE(isItemAtURLOnLocalFilesystem(fake.files, "file:///my%20disk/a"));
}

TEST_F(LocalVolumes, AFileOnANetworkVolumeIsNot) {
  EXPECT_FALSE(isItemAtURLOnLocalFilesystem(fake.files, "file:///net/a"));
}

TEST_F(LocalVolumes, AFileBesideAMountPointIsNotOnThatVolume) {
  EXPECT_TRUE(isItemAtURLOnLocalFilesystem(fake.files, "file:///network"));
}

TEST_F(LocalVolumes, AMissingFileIsNotLocal) { EXPECT_FALSE(isItemAtURLOnLocalFilesystem(fake.files, "file:///missing")); }

TEST_F(LocalVolumes, AUrlThatNamesNoFileIsNot) {
  for (const char* url : {"http://server/a", "/home/me", "", "file://server/a", "file:///a%zz"})
    EXPECT_FALSE(isItemAtURLOnLocalFilesystem(fake.files, url)) << url;
}

TEST_F(LocalVolumes, AVolumeThatCannotBeNamedIsNot) {
  fake.files.volumes.clear();
  EXPECT_FALSE(isItemAtURLOnLocalFilesystem(fake.files, "file:///home"));
}
