#include "posix/MountTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace {

using ::testing::IsEmpty;

TEST(MountTable, TellsNumberPlaceKindAndSourceWhateverTagsStandBetween) {
  for (const std::string tags : {"", "shared:1 ", "shared:2 master:1 "}) {
    const auto mounts = posix::mountsIn("31 22 0:28 / /home rw " + tags + "- nfs4 server:/home rw,vers=4.2\n");
    ASSERT_EQ(mounts.size(), 1U) << tags;
    EXPECT_EQ(mounts[0].number, 31U);
    EXPECT_EQ(mounts[0].point, "/home");
    EXPECT_EQ(mounts[0].fileSystem, "nfs4");
    EXPECT_EQ(mounts[0].source, "server:/home");
  }
}

TEST(MountTable, BlanksAndBackslashesAreReadBack) {
  const auto mounts = posix::mountsIn("35 22 0:32 / /mnt/a\\040b\\134c\\011 rw - cifs //filer/Public\\040Share rw");
  ASSERT_EQ(mounts.size(), 1U);
  EXPECT_EQ(mounts[0].point, "/mnt/a b\\c\t");
  EXPECT_EQ(mounts[0].source, "//filer/Public Share");
}

TEST(MountTable, AnUnfinishedEscapeStaysAsItIs) {
  const auto mounts = posix::mountsIn("35 22 0:32 / /a\\04 rw - tmpfs \\09x rw");
  ASSERT_EQ(mounts.size(), 1U);
  EXPECT_EQ(mounts[0].point, "/a\\04");
  EXPECT_EQ(mounts[0].source, "\\09x");
}

TEST(MountTable, AnEmptySourceKeepsItsPlace) {
  const auto mounts = posix::mountsIn("35 22 0:32 / /a rw - tmpfs  rw");
  ASSERT_EQ(mounts.size(), 1U);
  EXPECT_EQ(mounts[0].source, "");
}

TEST(MountTable, LinesOfAnotherFormAreLeftOut) {
  EXPECT_THAT(posix::mountsIn(""), IsEmpty());
  EXPECT_THAT(posix::mountsIn("22 1 8:1 / /\n22 1 8:1 / / rw shared:1 -\nx 1 8:1 / / rw - ext4 /dev/sda rw\n"), IsEmpty());
}

TEST(MountTable, ThatOfThisProcessHasARoot) {
  std::ifstream file(posix::mountTablePath);
  const auto mounts = posix::mountsIn(std::string(std::istreambuf_iterator(file), {}));
  EXPECT_TRUE(std::ranges::any_of(mounts, [](const posix::Mount& mount) { return mount.point == "/"; }));
}

}  // namespace
