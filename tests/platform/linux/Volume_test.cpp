#include "platform/linux/Volume.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/FileManager.h"
#include "tests/support/TemporaryFolder.h"

namespace platform::Linux {
namespace {

// As the kernel writes it; the middle fields (tags) vary in number.
constexpr std::string_view mounts =
    "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n"
    "31 22 0:28 / /home rw shared:2 master:1 - nfs4 server.example:/export/home rw,vers=4.2\n"
    "32 22 0:29 / /mnt/share\\040one rw - cifs //filer/Public\\040Share rw\n"
    "33 22 0:30 / /mnt/ssh rw - fuse.sshfs me@host:/data rw\n"
    "34 22 0:31 / /mnt/p rw - 9p hostshare rw\n"
    "35 22 0:32 / /mnt/a\\040b\\134c\xC3\xA4 rw - tmpfs tmpfs rw\n"
    "36 22 0:33 / /mnt/v6 rw - nfs [fe80::1]:/export rw\n"
    "37 22 0:34 / /mnt/dav rw - fuse.davfs2 https://dav.example/x rw\n"
    "38 22 8:2 / /mnt/usb rw - fuseblk /dev/sdb1 rw\n"
    "312 22 0:40 / /mnt/long rw - xfs /dev/sdc1 rw\n";

TEST(Volume, ALocalFileSystemHasAFileURL) {
  EXPECT_EQ(volumeURL(mounts, 22), "file:///");
  EXPECT_EQ(volumeURL(mounts, 38), "file:///mnt/usb/");
}

TEST(Volume, TheMountPointIsPercentEncoded) { EXPECT_EQ(volumeURL(mounts, 35), "file:///mnt/a%20b%5Cc%C3%A4/"); }

TEST(Volume, ANetworkFileSystemHasItsOwnScheme) {
  EXPECT_EQ(volumeURL(mounts, 31), "nfs://server.example/export/home");
  EXPECT_EQ(volumeURL(mounts, 32), "smb://filer/Public%20Share");
  EXPECT_EQ(volumeURL(mounts, 33), "sftp://me@host/data");
  EXPECT_EQ(volumeURL(mounts, 34), "9p://hostshare");
  EXPECT_EQ(volumeURL(mounts, 36), "nfs://[fe80::1]/export");
}

TEST(Volume, ASourceThatIsAURLKeepsOneScheme) { EXPECT_EQ(volumeURL(mounts, 37), "https://dav.example/x"); }

TEST(Volume, TheWholeNumberIsCompared) { EXPECT_EQ(volumeURL(mounts, 312), "file:///mnt/long/"); }

TEST(Volume, AnUnknownMountHasNone) {
  EXPECT_EQ(volumeURL(mounts, 3), std::nullopt);
  EXPECT_EQ(volumeURL("", 22), std::nullopt);
  EXPECT_EQ(volumeURL("22 1 8:1 / /\n22 1 8:1 / / rw shared:1 -\n", 22), std::nullopt);
}

TEST(Volume, TheFolderOfATestIsLocal) {
  const tests::TemporaryFolder folder;
  const auto url = platform::Linux::FileManager().volumeURLForPath(folder.path());
  ASSERT_TRUE(url);
  EXPECT_TRUE(url->starts_with("file:///"));
  EXPECT_TRUE(url->ends_with("/"));
}

TEST(Volume, ALinkLeadsToTheVolumeOfItsTarget) {
  const tests::TemporaryFolder folder;
  std::filesystem::create_symlink("/proc/self", folder.path("link"));
  EXPECT_EQ(platform::Linux::FileManager().volumeURLForPath(folder.path("link")), "file:///proc/");
}

TEST(Volume, AMissingPathHasNone) {
  EXPECT_EQ(platform::Linux::FileManager().volumeURLForPath("/no/such/path"), std::nullopt);
  EXPECT_EQ(platform::Linux::FileManager().volumeURLForPath(""), std::nullopt);
}

}  // namespace
}  // namespace platform::Linux
