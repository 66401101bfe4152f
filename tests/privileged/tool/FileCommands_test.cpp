#include <fcntl.h>
#include <sys/xattr.h>

#include "tests/privileged/tool/ToolRun.h"

namespace tests::tool {
namespace {

class RemoveFile : public ToolTest {};

TEST_F(RemoveFile, RemovesATree) {
  makeBundle(folder / "App.app", "1");
  write(folder / "Other", "other");
  expectSuccess(remove(folder / "App.app"));
  EXPECT_FALSE(isThere(folder / "App.app"));
  EXPECT_EQ(read(folder / "Other"), "other");
}

TEST_F(RemoveFile, RemovesAFile) {
  write(folder / "item", "item");
  expectSuccess(remove(folder / "item"));
  EXPECT_FALSE(isThere(folder / "item"));
}

TEST_F(RemoveFile, RemovesALinkAndNotItsTarget) {
  write(folder / "item", "item");
  fs::create_symlink("item", folder / "link");
  expectSuccess(remove(folder / "link"));
  EXPECT_FALSE(isThere(folder / "link"));
  EXPECT_EQ(read(folder / "item"), "item");
}

TEST_F(RemoveFile, DoesNotFollowLinksInside) {
  write(folder / "outside/item", "item");
  fs::create_directory(folder / "tree");
  fs::create_directory_symlink(folder / "outside", folder / "tree/link");
  fs::create_directory_symlink("/", folder / "tree/root");
  expectSuccess(remove(folder / "tree"));
  EXPECT_EQ(read(folder / "outside/item"), "item");
}

TEST_F(RemoveFile, RemovesPipesAndEmptyFolders) {
  fs::create_directories(folder / "tree/empty/folders");
  ASSERT_EQ(::mkfifo((folder / "tree/pipe").c_str(), 0600), 0);
  expectSuccess(remove(folder / "tree"));
  EXPECT_FALSE(isThere(folder / "tree"));
}

TEST_F(RemoveFile, RemovesADeepTree) {
  fs::path deep = folder / "tree";
  const int levels = 300;
  for (int i = 0; i < levels; ++i) deep /= "level";
  fs::create_directories(deep);
  expectSuccess(remove(folder / "tree"));
  EXPECT_FALSE(isThere(folder / "tree"));
}

class CopyFile : public ToolTest {};

TEST_F(CopyFile, CopiesATreeWithModesOwnersTimesAndLinks) {
  makeBundle(folder / "App.app", "1");
  fs::permissions(folder / "App.app/Contents/Info.plist", fs::perms(0640));
  fs::create_symlink("/nowhere", folder / "App.app/dangling");
  fs::create_directory(folder / "App.app/empty");
  const timespec times[2] = {{.tv_sec = 1000, .tv_nsec = 1}, {.tv_sec = 2000, .tv_nsec = 123456789}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "App.app/Contents").c_str(), times, 0), 0);
  ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "App.app/dangling").c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  const auto wanted = snapshot(folder / "App.app");
  expectSuccess(copy(folder / "App.app", folder / "Copy.app"));
  EXPECT_EQ(snapshot(folder / "Copy.app"), wanted);
  EXPECT_EQ(snapshot(folder / "App.app"), wanted);
}

TEST_F(CopyFile, CopiesASingleFile) {
  write(folder / "item", "item");
  expectSuccess(copy(folder / "item", folder / "copy"));
  EXPECT_EQ(read(folder / "copy"), "item");
  EXPECT_NE(statusOf(folder / "copy").st_ino, statusOf(folder / "item").st_ino);
}

TEST_F(CopyFile, CopiesALinkAsALink) {
  fs::create_symlink("/nowhere", folder / "link");
  expectSuccess(copy(folder / "link", folder / "copy"));
  EXPECT_EQ(fs::read_symlink(folder / "copy"), "/nowhere");
}

TEST_F(CopyFile, CopiesUserExtendedAttributesOfFilesAndFolders) {
  write(folder / "tree/item", "item");
  ASSERT_EQ(::setxattr((folder / "tree/item").c_str(), "user.one", "1", 1, 0), 0);
  ASSERT_EQ(::setxattr((folder / "tree").c_str(), "user.two", "22", 2, 0), 0);
  expectSuccess(copy(folder / "tree", folder / "copy"));
  char value[8];
  EXPECT_EQ(::getxattr((folder / "copy/item").c_str(), "user.one", value, sizeof value), 1);
  EXPECT_EQ(::getxattr((folder / "copy").c_str(), "user.two", value, sizeof value), 2);
}

TEST_F(CopyFile, DropsSetIDBits) {
  write(folder / "item", "item");
  ASSERT_EQ(::chmod((folder / "item").c_str(), 06755), 0);
  expectSuccess(copy(folder / "item", folder / "copy"));
  EXPECT_EQ(statusOf(folder / "copy").st_mode & ALLPERMS, 0755U);
}

TEST_F(CopyFile, KeepsHardLinksInsideTheTree) {
  write(folder / "tree/a", "item");
  fs::create_hard_link(folder / "tree/a", folder / "tree/b");
  expectSuccess(copy(folder / "tree", folder / "copy"));
  EXPECT_EQ(statusOf(folder / "copy/a").st_ino, statusOf(folder / "copy/b").st_ino);
  EXPECT_EQ(statusOf(folder / "copy/a").st_nlink, 2U);
}

TEST_F(CopyFile, KeepsHolesAndWhatIsBetweenThem) {
  constexpr off_t megabyte = 1 << 20;
  write(folder / "item", "begin");
  const int file = ::open((folder / "item").c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_EQ(::pwrite(file, "middle", 6, 40 * megabyte), 6);
  ASSERT_EQ(::ftruncate(file, 100 * megabyte), 0);
  ::close(file);
  expectSuccess(copy(folder / "item", folder / "copy"));
  EXPECT_EQ(statusOf(folder / "copy").st_size, 100 * megabyte);
  EXPECT_LT(statusOf(folder / "copy").st_blocks, 1000);
  EXPECT_EQ(std::system(("cmp '" + (folder / "item").string() + "' '" + (folder / "copy").string() + "'").c_str()), 0);
}

TEST_F(CopyFile, CopiesByReadingAndWritingWhereNothingElseWorks) {
  command = withFaults({"ioctl:error=EOPNOTSUPP", "copy_file_range:error=EXDEV"});
  if (command.empty()) GTEST_SKIP() << "strace cannot trace here";
  write(folder / "item", std::string(1000000, 'x') + "end");
  expectSuccess(copy(folder / "item", folder / "copy"));
  EXPECT_EQ(read(folder / "copy"), read(folder / "item"));
}

TEST_F(CopyFile, LeavesNothingWhenWritingFails) {
  command = withFaults({"ioctl:error=EOPNOTSUPP", "copy_file_range:error=ENOSPC:when=3"});
  if (command.empty()) GTEST_SKIP() << "strace cannot trace here";
  makeBundle(folder / "App.app", "1");
  expectRefusal(copy(folder / "App.app", folder / "Copy.app"), "No space left");
  EXPECT_FALSE(isThere(folder / "Copy.app"));
}

TEST_F(CopyFile, RefusesAPipeInside) {
  fs::create_directory(folder / "tree");
  ASSERT_EQ(::mkfifo((folder / "tree/pipe").c_str(), 0600), 0);
  expectRefusal(copy(folder / "tree", folder / "copy"), "pipe");
  EXPECT_FALSE(isThere(folder / "copy"));
}

TEST_F(CopyFile, CopiesNamesThatAreNotUTF8) {
  write(folder / "tree/\xff\xfe", "item");
  expectSuccess(copy(folder / "tree", folder / "copy"));
  EXPECT_EQ(read(folder / "copy/\xff\xfe"), "item");
}

TEST_F(CopyFile, KeepsTheOwnersOfTheSource) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to give files away";
  write(folder / "item", "item");
  ASSERT_EQ(::chown((folder / "item").c_str(), 65534, 65533), 0);
  expectSuccess(copy(folder / "item", folder / "copy"));
  EXPECT_EQ(statusOf(folder / "copy").st_uid, 65534U);
  EXPECT_EQ(statusOf(folder / "copy").st_gid, 65533U);
}

// An access list in the kernel's own form: everything for owner, user 1 and mask, nothing for the others.
struct AccessList {
  std::uint32_t version = 2;
  struct {
    std::uint16_t tag;
    std::uint16_t permissions;
    std::uint32_t id;
  } entries[5] = {{1, 7, ~0U}, {2, 7, 1}, {4, 0, ~0U}, {0x10, 7, ~0U}, {0x20, 0, ~0U}};
};

TEST_F(CopyFile, KeepsAnAccessList) {
  write(folder / "item", "item");
  const AccessList list;
  if (::setxattr((folder / "item").c_str(), "system.posix_acl_access", &list, sizeof list, 0) != 0)
    GTEST_SKIP() << "no lists here";
  expectSuccess(copy(folder / "item", folder / "copy"));
  AccessList copied;
  EXPECT_EQ(::getxattr((folder / "copy").c_str(), "system.posix_acl_access", &copied, sizeof copied),
            ssize_t{sizeof copied});
  EXPECT_EQ(std::memcmp(&copied, &list, sizeof list), 0);
}

TEST_F(CopyFile, DoesNotTakeOverTheAccessListOfTheFolderAround) {
  makeBundle(folder / "App.app", "1");
  const AccessList list;
  if (::setxattr(folder.c_str(), "system.posix_acl_default", &list, sizeof list, 0) != 0) GTEST_SKIP() << "no lists here";
  expectSuccess(copy(folder / "App.app", folder / "Copy.app"));
  EXPECT_LT(::getxattr((folder / "Copy.app").c_str(), "system.posix_acl_access", nullptr, 0), 0);
  EXPECT_LT(::getxattr((folder / "Copy.app/Contents/Info.plist").c_str(), "system.posix_acl_access", nullptr, 0), 0);
}

class MoveFile : public ToolTest {};

TEST_F(MoveFile, MovesATreeToAnotherName) {
  makeBundle(folder / "App.app", "1");
  const auto wanted = snapshot(folder / "App.app");
  const auto inode = statusOf(folder / "App.app").st_ino;
  expectSuccess(move(folder / "App.app", folder / "New.app"));
  EXPECT_EQ(snapshot(folder / "New.app"), wanted);
  EXPECT_EQ(statusOf(folder / "New.app").st_ino, inode);
  EXPECT_FALSE(isThere(folder / "App.app"));
}

TEST_F(MoveFile, NeverOverwritesAnEmptyFolder) {
  makeBundle(folder / "App.app", "1");
  fs::create_directory(folder / "New.app");
  expectRefusal(move(folder / "App.app", folder / "New.app"), "already");
  EXPECT_TRUE(isThere(folder / "App.app"));
}

TEST_F(MoveFile, NeverOverwritesADanglingLink) {
  write(folder / "item", "item");
  fs::create_symlink("nowhere", folder / "new");
  expectRefusal(move(folder / "item", folder / "new"), "already");
  EXPECT_TRUE(fs::is_symlink(folder / "new"));
}

TEST_F(MoveFile, NeverOverwritesWhereTheFileSystemCannotForbidIt) {
  command = withFaults({"renameat2:error=EINVAL"});
  if (command.empty()) GTEST_SKIP() << "strace cannot trace here";
  write(folder / "item", "item");
  write(folder / "tree/item", "item");
  expectSuccess(move(folder / "item", folder / "new"));
  expectSuccess(move(folder / "tree", folder / "moved"));
  EXPECT_EQ(read(folder / "new"), "item");
  EXPECT_EQ(read(folder / "moved/item"), "item");
  write(folder / "item", "another");
  expectRefusal(move(folder / "item", folder / "new"), "already");
  EXPECT_EQ(read(folder / "new"), "item");
}

TEST_F(MoveFile, MovesALinkAndNotItsTarget) {
  write(folder / "item", "item");
  fs::create_symlink("item", folder / "link");
  expectSuccess(move(folder / "link", folder / "moved"));
  EXPECT_TRUE(fs::is_symlink(folder / "moved"));
  EXPECT_TRUE(isThere(folder / "item"));
}

TEST_F(MoveFile, CopiesWhenItCannotRename) {
  command = withFaults({"renameat2:error=EXDEV:when=1"});
  if (command.empty()) GTEST_SKIP() << "strace cannot trace here";
  makeBundle(folder / "App.app", "1");
  const auto wanted = snapshot(folder / "App.app");
  expectSuccess(move(folder / "App.app", folder / "New.app"));
  EXPECT_EQ(snapshot(folder / "New.app"), wanted);
  EXPECT_FALSE(isThere(folder / "App.app"));
}

TEST_F(MoveFile, IsUndoneWhenTheCopiedSourceCannotBeRemoved) {
  command = withFaults({"renameat2:error=EXDEV:when=1", "renameat:error=EROFS:when=1"});
  if (command.empty()) GTEST_SKIP() << "strace cannot trace here";
  makeBundle(folder / "App.app", "1");
  const auto wanted = snapshot(folder / "App.app");
  expectRefusal(move(folder / "App.app", folder / "New.app"), "cannot remove");
  EXPECT_EQ(snapshot(folder / "App.app"), wanted);
  EXPECT_FALSE(isThere(folder / "New.app"));
}

}  // namespace
}  // namespace tests::tool
