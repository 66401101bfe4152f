#include "platform/linux/FileManager.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <set>

#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"

namespace platform::Linux {
namespace {

namespace fs = std::filesystem;
using tests::ScopedEnvironment;
using tests::writeFile;

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

ino_t inodeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_ino;
}

FileAttributes attributes(std::optional<std::int32_t> permissions, std::optional<std::string> owner = {},
                          std::optional<std::string> group = {}) {
  return {permissions, std::move(owner), std::move(group)};
}

// The process's mask for the life of this object.
class ScopedMask {
 public:
  explicit ScopedMask(mode_t mask) : _before(::umask(mask)) {}
  ~ScopedMask() { ::umask(_before); }
  ScopedMask(const ScopedMask&) = delete;
  ScopedMask& operator=(const ScopedMask&) = delete;

 private:
  mode_t _before;
};

class FileManagerTest : public testing::Test {
 protected:
  tests::TemporaryFolder folder;
  platform::Linux::FileManager files;
};

using FileExists = FileManagerTest;
using CreateFile = FileManagerTest;
using CreateDirectory = FileManagerTest;
using SetAttributes = FileManagerTest;
using RemoveItem = FileManagerTest;
using Contents = FileManagerTest;
using UnusedName = FileManagerTest;
using StandardFolder = FileManagerTest;

TEST_F(FileExists, SaysWhetherItIsAFolder) {
  writeFile(folder.path("document"), "x");
  bool isDirectory = true;
  EXPECT_TRUE(files.fileExistsAtPath(folder.path("document"), &isDirectory));
  EXPECT_FALSE(isDirectory);
  EXPECT_TRUE(files.fileExistsAtPath(folder.path(), &isDirectory));
  EXPECT_TRUE(isDirectory);
}

TEST_F(FileExists, LeavesTheFlagAloneWhenNothingExists) {
  bool isDirectory = true;
  EXPECT_FALSE(files.fileExistsAtPath(folder.path("missing"), &isDirectory));
  EXPECT_TRUE(isDirectory);
}

TEST_F(FileExists, FollowsLinksAndADanglingOneDoesNotExist) {
  fs::create_symlink(folder.path(), folder.path("good"));
  fs::create_symlink("nowhere", folder.path("dangling"));
  bool isDirectory = false;
  EXPECT_TRUE(files.fileExistsAtPath(folder.path("good"), &isDirectory));
  EXPECT_TRUE(isDirectory);
  EXPECT_FALSE(files.fileExistsAtPath(folder.path("dangling")));
}

TEST_F(FileExists, AnExecutableIsADocumentWithTheRight) {
  writeFile(folder.path("plain"), "x");
  writeFile(folder.path("program"), "x");
  ::chmod(folder.path("program").c_str(), 0700);
  EXPECT_FALSE(files.isExecutableFileAtPath(folder.path("plain")));
  EXPECT_TRUE(files.isExecutableFileAtPath(folder.path("program")));
  EXPECT_FALSE(files.isExecutableFileAtPath(folder.path()));
  EXPECT_FALSE(files.isExecutableFileAtPath(folder.path("missing")));
}

TEST_F(CreateFile, GivesExactlyThePermissionsWhateverTheMask) {
  const ScopedMask mask(077);
  EXPECT_TRUE(files.createFileAtPath(folder.path("open"), attributes(0666)));
  EXPECT_EQ(modeOf(folder.path("open")), 0666U);
  ::umask(0);
  EXPECT_TRUE(files.createFileAtPath(folder.path("closed"), attributes(0600)));
  EXPECT_EQ(modeOf(folder.path("closed")), 0600U);
}

TEST_F(CreateFile, WithoutPermissionsTheMaskDecides) {
  const ScopedMask mask(027);
  EXPECT_TRUE(files.createFileAtPath(folder.path("document"), {}));
  EXPECT_EQ(modeOf(folder.path("document")), 0640U);
}

TEST_F(CreateFile, ReplacesADocumentByAFreshOne) {
  writeFile(folder.path("document"), "old");
  fs::create_hard_link(folder.path("document"), folder.path("other name"));
  EXPECT_TRUE(files.createFileAtPath(folder.path("document"), attributes(0666)));
  EXPECT_EQ(tests::readFile(folder.path("document")), "");
  EXPECT_EQ(tests::readFile(folder.path("other name")), "old");
  EXPECT_NE(inodeOf(folder.path("document")), inodeOf(folder.path("other name")));
}

TEST_F(CreateFile, NeverWritesThroughALink) {
  writeFile(folder.path("target"), "precious");
  fs::create_symlink(folder.path("target"), folder.path("link"));
  fs::create_symlink(folder.path("not yet there"), folder.path("dangling"));
  EXPECT_FALSE(files.createFileAtPath(folder.path("link"), attributes(0666)));
  EXPECT_FALSE(files.createFileAtPath(folder.path("dangling"), attributes(0666)));
  EXPECT_EQ(tests::readFile(folder.path("target")), "precious");
  EXPECT_FALSE(fs::exists(folder.path("not yet there")));
}

TEST_F(CreateFile, FailsWhereAFolderStands) {
  fs::create_directory(folder.path("folder"));
  EXPECT_FALSE(files.createFileAtPath(folder.path("folder"), attributes(0666)));
  EXPECT_TRUE(fs::is_directory(folder.path("folder")));
}

TEST_F(CreateFile, FailsAtOnceWhereAPipeStands) {
  ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(files.createFileAtPath(folder.path("pipe"), attributes(0666)));
}

TEST_F(CreateFile, FailsInAMissingFolder) { EXPECT_FALSE(files.createFileAtPath(folder.path("no/document"), {})); }

TEST_F(CreateFile, AnUnknownAccountChangesNothing) {
  writeFile(folder.path("document"), "old");
  EXPECT_FALSE(files.createFileAtPath(folder.path("document"), attributes(std::nullopt, "no such account")));
  EXPECT_EQ(tests::readFile(folder.path("document")), "old");
}

TEST_F(CreateFile, LeavesNothingBehindWhenTheOwnerIsRefused) {
  if (::geteuid() == 0) GTEST_SKIP() << "root may give files to anyone";
  EXPECT_FALSE(files.createFileAtPath(folder.path("document"), attributes(std::nullopt, "root")));
  EXPECT_FALSE(fs::exists(folder.path("document")));
}

TEST_F(CreateDirectory, MakesTheFoldersAboveWithTheSameAttributes) {
  const ScopedMask mask(077);
  Error error;
  EXPECT_TRUE(files.createDirectoryAtPath(folder.path("a/b/c"), true, attributes(0755), &error));
  for (const auto* name : {"a", "a/b", "a/b/c"}) EXPECT_EQ(modeOf(folder.path(name)), 0755U) << name;
  EXPECT_EQ(error, Error());
}

TEST_F(CreateDirectory, AFolderThatItsMakerMayNotEnterStillGetsItsContents) {
  EXPECT_TRUE(files.createDirectoryAtPath(folder.path("a/b"), true, attributes(0500), nullptr));
  EXPECT_EQ(modeOf(folder.path("a/b")), 0500U);
  EXPECT_EQ(modeOf(folder.path("a")), 0500U);
  ::chmod(folder.path("a").c_str(), 0700);
}

TEST_F(CreateDirectory, LeavesAnExistingFolderAsItIs) {
  fs::create_directory(folder.path("folder"));
  ::chmod(folder.path("folder").c_str(), 0710);
  EXPECT_TRUE(files.createDirectoryAtPath(folder.path("folder"), true, attributes(0755), nullptr));
  EXPECT_EQ(modeOf(folder.path("folder")), 0710U);
}

TEST_F(CreateDirectory, AnExistingFolderIsAnErrorWithoutIntermediateOnes) {
  Error error;
  EXPECT_FALSE(files.createDirectoryAtPath(folder.path(), false, {}, &error));
  EXPECT_EQ(error.code, EEXIST);
  EXPECT_EQ(error.description, "File exists");
}

TEST_F(CreateDirectory, ADocumentInTheWayIsAnError) {
  writeFile(folder.path("document"), "x");
  Error error;
  EXPECT_FALSE(files.createDirectoryAtPath(folder.path("document"), true, {}, &error));
  EXPECT_EQ(error.code, EEXIST);
  EXPECT_FALSE(files.createDirectoryAtPath(folder.path("document/below"), true, {}, &error));
  EXPECT_EQ(error.code, ENOTDIR);
}

TEST_F(CreateDirectory, WithoutIntermediateOnesTheFolderAboveMustBeThere) {
  Error error;
  EXPECT_FALSE(files.createDirectoryAtPath(folder.path("a/b"), false, {}, &error));
  EXPECT_EQ(error.code, ENOENT);
  EXPECT_FALSE(fs::exists(folder.path("a")));
}

TEST_F(CreateDirectory, FollowsALinkToAFolderAndRefusesADanglingOne) {
  fs::create_symlink("nowhere", folder.path("dangling"));
  Error error;
  EXPECT_FALSE(files.createDirectoryAtPath(folder.path("dangling/a"), true, {}, &error));
  EXPECT_EQ(error.code, EEXIST);
}

TEST_F(SetAttributes, SetsPermissionsOwnerAndGroupByName) {
  writeFile(folder.path("document"), "x");
  const FileAttributes own{.posixPermissions = 04750,
                           .ownerAccountName = ::getpwuid(::geteuid())->pw_name,
                           .groupOwnerAccountName = ::getgrgid(::getegid())->gr_name};
  EXPECT_TRUE(files.setAttributes(own, folder.path("document")));
  EXPECT_EQ(modeOf(folder.path("document")), 04750U);
}

TEST_F(SetAttributes, GivesTheFileToAnotherAccount) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root may give a file away";
  const passwd* nobody = ::getpwnam("nobody");
  const group* nogroup = ::getgrnam("nogroup");
  if (nobody == nullptr || nogroup == nullptr) GTEST_SKIP() << "no account nobody:nogroup here";
  writeFile(folder.path("document"), "x");
  ASSERT_TRUE(files.setAttributes(attributes(std::nullopt, "nobody", "nogroup"), folder.path("document")));
  struct stat status {};
  ::stat(folder.path("document").c_str(), &status);
  EXPECT_EQ(status.st_uid, nobody->pw_uid);
  EXPECT_EQ(status.st_gid, nogroup->gr_gid);
  ASSERT_TRUE(files.setAttributes(attributes(std::nullopt, "root"), folder.path("document")));
  ::stat(folder.path("document").c_str(), &status);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(status.st_gid, nogroup->gr_gid);
}

TEST_F(SetAttributes, AnUnknownNameChangesNothing) {
  writeFile(folder.path("document"), "x");
  const mode_t before = modeOf(folder.path("document"));
  EXPECT_FALSE(files.setAttributes(attributes(0711, "no such account"), folder.path("document")));
  EXPECT_FALSE(files.setAttributes(attributes(0711, std::nullopt, "no such group"), folder.path("document")));
  EXPECT_EQ(modeOf(folder.path("document")), before);
}

TEST_F(SetAttributes, FailsOnAMissingPath) {
  EXPECT_FALSE(files.setAttributes(attributes(0600), folder.path("missing")));
  EXPECT_FALSE(files.setAttributes({}, folder.path("missing")));
}

TEST_F(RemoveItem, RemovesADocumentAFolderAndALink) {
  writeFile(folder.path("document"), "x");
  fs::create_directories(folder.path("tree/a/b"));
  writeFile(folder.path("tree/a/b/c"), "x");
  writeFile(folder.path("tree/.hidden"), "x");
  fs::create_symlink("nowhere", folder.path("link"));
  for (const auto* name : {"document", "tree/", "link"}) EXPECT_TRUE(files.removeItemAtPath(folder.path(name))) << name;
  EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST_F(RemoveItem, DoesNotFollowLinks) {
  fs::create_directory(folder.path("kept"));
  writeFile(folder.path("kept/document"), "x");
  fs::create_directory(folder.path("tree"));
  fs::create_directory_symlink(folder.path("kept"), folder.path("tree/link"));
  fs::create_directory_symlink(folder.path("kept"), folder.path("link"));
  EXPECT_TRUE(files.removeItemAtPath(folder.path("tree")));
  EXPECT_TRUE(files.removeItemAtPath(folder.path("link")));
  EXPECT_TRUE(fs::exists(folder.path("kept/document")));
}

TEST_F(RemoveItem, FailsOnWhatIsNotThereAndOnDots) {
  EXPECT_FALSE(files.removeItemAtPath(folder.path("missing")));
  EXPECT_FALSE(files.removeItemAtPath(folder.path(".")));
  EXPECT_FALSE(files.removeItemAtPath(folder.path("..")));
  EXPECT_FALSE(files.removeItemAtPath("/"));
  EXPECT_FALSE(files.removeItemAtPath(""));
  EXPECT_TRUE(fs::exists(folder.path()));
}

TEST_F(RemoveItem, ATreeDeeperThanAnyPathMayBeNeedsFewDescriptors) {
  fs::create_directory(folder.path("deep"));
  int level = ::open(folder.path("deep").c_str(), O_PATH | O_DIRECTORY);
  for (int depth = 0; depth < 3000; ++depth) {
    ASSERT_EQ(::mkdirat(level, "level", 0700), 0);
    const int next = ::openat(level, "level", O_PATH | O_DIRECTORY);
    ::close(level);
    level = next;
  }
  ::close(level);
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit few{64, before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &few);
  EXPECT_TRUE(files.removeItemAtPath(folder.path("deep")));
  ::setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_FALSE(fs::exists(folder.path("deep")));
}

TEST_F(RemoveItem, AWideTreeIsRemovedWhole) {
  for (int i = 0; i < 300; ++i) {
    fs::create_directories(folder.path("wide/" + std::to_string(i) + "/x"));
    writeFile(folder.path("wide/" + std::to_string(i) + ".txt"), "x");
  }
  EXPECT_TRUE(files.removeItemAtPath(folder.path("wide")));
  EXPECT_FALSE(fs::exists(folder.path("wide")));
}

TEST_F(RemoveItem, SaysWhenSomethingCouldNotBeRemoved) {
  if (::geteuid() == 0) GTEST_SKIP() << "root may remove everything";
  fs::create_directories(folder.path("tree/locked"));
  writeFile(folder.path("tree/locked/document"), "x");
  ::chmod(folder.path("tree/locked").c_str(), 0500);
  EXPECT_FALSE(files.removeItemAtPath(folder.path("tree")));
  ::chmod(folder.path("tree/locked").c_str(), 0700);
}

TEST_F(Contents, GivesEveryByte) {
  std::string bytes(300'000, 'x');
  bytes[5] = '\0';
  writeFile(folder.path("document"), bytes);
  writeFile(folder.path("empty"), "");
  EXPECT_EQ(files.contentsAtPath(folder.path("document")), bytes);
  EXPECT_EQ(files.contentsAtPath(folder.path("empty")), "");
}

TEST_F(Contents, AreNothingForAFolderAMissingPathOrAPipe) {
  ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(files.contentsAtPath(folder.path()), std::nullopt);
  EXPECT_EQ(files.contentsAtPath(folder.path("missing")), std::nullopt);
  EXPECT_EQ(files.contentsAtPath(folder.path("pipe")), std::nullopt);
}

TEST_F(UnusedName, ReplacesTheWholeRunOfX) {
  const std::string name = files.unusedName(folder.path("KeltoXXXXXXXXXX"));
  ASSERT_EQ(name.size(), folder.path("KeltoXXXXXXXXXX").size());
  EXPECT_TRUE(name.starts_with(folder.path("Kelto")));
  for (const char character : name.substr(name.size() - 10)) EXPECT_TRUE(::isalnum(static_cast<unsigned char>(character)));
  EXPECT_FALSE(fs::exists(name));
}

TEST_F(UnusedName, EveryPlaceOfTheRunVaries) {
  std::vector<std::set<char>> seen(10);
  for (int i = 0; i < 200; ++i) {
    const std::string name = files.unusedName(folder.path("KeltoXXXXXXXXXX"));
    for (std::size_t place = 0; place < 10; ++place) seen[place].insert(name[name.size() - 10 + place]);
  }
  for (const auto& characters : seen) EXPECT_GT(characters.size(), 30U);
}

TEST_F(UnusedName, IsNeverOneInUse) {
  const std::string characters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  for (const char character : characters)
    if (character != 'q') fs::create_symlink("nowhere", folder.path("name") + character);
  std::string name;
  for (int i = 0; i < 30 && name.empty(); ++i) name = files.unusedName(folder.path("nameX"));
  EXPECT_EQ(name, folder.path("nameq"));
}

TEST_F(UnusedName, IsEmptyWhenAllAreTaken) {
  const std::string characters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  for (const char character : characters) writeFile(folder.path("name") + character, "");
  EXPECT_EQ(files.unusedName(folder.path("nameX")), "");
}

TEST_F(UnusedName, IsEmptyWithoutAnX) { EXPECT_EQ(files.unusedName(folder.path("name")), ""); }

TEST_F(StandardFolder, TheTemporaryFolderIsPrivateToTheUser) {
  const ScopedEnvironment own("XDG_RUNTIME_DIR", folder.path());
  EXPECT_EQ(files.temporaryDirectory(), folder.path() + "/kelto");
}

TEST_F(StandardFolder, TheUsersLibraryIsInTheStateFolder) {
  const ScopedEnvironment home("HOME", "/home/someone");
  const ScopedEnvironment state("XDG_STATE_HOME", "/state");
  const auto ask = [&] { return files.searchPathForDirectories(SearchPathDirectory::library, NSUserDomainMask, true); };
  EXPECT_EQ(ask(), std::vector<std::string>{"/state/Library"});
  const ScopedEnvironment relative("XDG_STATE_HOME", "state");
  EXPECT_EQ(ask(), std::vector<std::string>{"/home/someone/.local/state/Library"});
}

TEST_F(StandardFolder, TheMachineHasNoLibrary) {
  EXPECT_TRUE(files.searchPathForDirectories(SearchPathDirectory::library, NSLocalDomainMask, true).empty());
  EXPECT_TRUE(files.searchPathForDirectories(SearchPathDirectory::library, NSLocalDomainMask, false).empty());
}

TEST_F(StandardFolder, TheTildeIsKeptWhenAskedFor) {
  const ScopedEnvironment home("HOME", "/home/someone");
  const ScopedEnvironment state("XDG_STATE_HOME", "");
  const ScopedEnvironment cache("XDG_CACHE_HOME", "/home/someone-else/cache");
  EXPECT_EQ(files.searchPathForDirectories(SearchPathDirectory::library, NSUserDomainMask, false),
            std::vector<std::string>{"~/.local/state/Library"});
  EXPECT_EQ(files.searchPathForDirectories(SearchPathDirectory::caches, NSUserDomainMask, false),
            std::vector<std::string>{"/home/someone-else/cache"});
}

TEST_F(StandardFolder, CachesAndSupportFollowTheirVariables) {
  const ScopedEnvironment home("HOME", "/home/someone");
  const ScopedEnvironment cache("XDG_CACHE_HOME", "/c");
  const ScopedEnvironment data("XDG_DATA_HOME", "");
  EXPECT_EQ(files.searchPathForDirectories(SearchPathDirectory::caches, NSUserDomainMask, true),
            std::vector<std::string>{"/c"});
  EXPECT_EQ(files.searchPathForDirectories(SearchPathDirectory::applicationSupport, NSUserDomainMask, true),
            std::vector<std::string>{"/home/someone/.local/share"});
}

TEST_F(StandardFolder, TheUserComesBeforeTheMachine) {
  const ScopedEnvironment home("HOME", "/home/someone");
  EXPECT_EQ(files.searchPathForDirectories(SearchPathDirectory::application, NSUserDomainMask | NSLocalDomainMask, true),
            (std::vector<std::string>{"/home/someone/Applications", "/Applications"}));
}

TEST_F(StandardFolder, TheDesktopIsWhereTheUserPutIt) {
  const ScopedEnvironment home("HOME", "/home/someone");
  const ScopedEnvironment configuration("XDG_CONFIG_HOME", folder.path());
  const auto ask = [&] { return files.searchPathForDirectories(SearchPathDirectory::desktop, NSUserDomainMask, true); };
  EXPECT_EQ(ask(), std::vector<std::string>{"/home/someone/Desktop"});
  writeFile(folder.path("user-dirs.dirs"), "# comment\nXDG_DESKTOP_DIR=\"$HOME/My \\\"Desk\\\"\"\nXDG_MUSIC_DIR=\"/m\"\n");
  EXPECT_EQ(ask(), std::vector<std::string>{"/home/someone/My \"Desk\""});
  writeFile(folder.path("user-dirs.dirs"), "XDG_DESKTOP_DIR=\"/desk\"\n");
  EXPECT_EQ(ask(), std::vector<std::string>{"/desk"});
  writeFile(folder.path("user-dirs.dirs"), "XDG_DESKTOP_DIR=relative\n");
  EXPECT_EQ(ask(), std::vector<std::string>{"/home/someone/Desktop"});
}

TEST_F(StandardFolder, WithoutHOMETheAccountSaysWhereHomeIs) {
  const ScopedEnvironment home("HOME", "relative");
  const ScopedEnvironment data("XDG_DATA_HOME", "");
  const auto folders = files.searchPathForDirectories(SearchPathDirectory::applicationSupport, NSUserDomainMask, true);
  ASSERT_EQ(folders.size(), 1U);
  EXPECT_EQ(folders[0], std::string(::getpwuid(::geteuid())->pw_dir) + "/.local/share");
}

}  // namespace
}  // namespace platform::Linux
