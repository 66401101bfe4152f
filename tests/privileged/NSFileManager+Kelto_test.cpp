#include "privileged/NSFileManager+Kelto.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/fake/FakePlatform.h"

using namespace NSFileManager::Kelto;
using platform::SearchPathDirectory;

namespace {

class StandardFolders : public testing::Test {
 protected:
  void SetUp() override {
    fake.files.searchPaths[{SearchPathDirectory::caches, platform::NSUserDomainMask}] = {"/home/me/.cache", "/other"};
  }

  std::optional<platform::Error> error{platform::Error{1, "before"}};
  const std::optional<platform::Error> before = error;
  platform::fake::FakePlatform fake;
};

class LocalVolumes : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* path : {"/home/me/a b.txt", "/my disk/a", "/net/a", "/network"}) fake.files.addFile(path);
    fake.files.volumes["/"] = "file:///";
    fake.files.volumes["/net"] = "nfs://server/export";
    fake.files.volumes["/my disk"] = "file:///my%20disk/";
  }

  platform::fake::FakePlatform fake;
};

}  // namespace

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
  for (const char* url : {"http://server/a", "/home/me", "", "file:///a%zz"})
    EXPECT_FALSE(isItemAtURLOnLocalFilesystem(fake.files, url)) << url;
}

TEST_F(LocalVolumes, AVolumeThatCannotBeNamedIsNot) {
  fake.files.volumes.clear();
  EXPECT_FALSE(isItemAtURLOnLocalFilesystem(fake.files, "file:///home"));
}
