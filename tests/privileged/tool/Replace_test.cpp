#include <sys/xattr.h>

#include "tests/privileged/tool/ToolRun.h"

namespace ToolTests {
namespace {

class ReplaceItem : public ToolTest {
 protected:
  ReplaceItem() {
    makeBundle(oldApp, "1");
    makeBundle(newApp, "2");
  }
  fs::path oldApp = folder / "Applications/App.app";
  fs::path newApp = folder / "Download/App.app";
};

TEST_F(ReplaceItem, PutsTheSourceInThePlaceOfTheDestination) {
  const auto wanted = snapshot(newApp);
  expectSuccess(replace(oldApp, newApp));
  EXPECT_EQ(snapshot(oldApp), wanted);
  EXPECT_FALSE(isThere(newApp));
}

TEST_F(ReplaceItem, KeepsTheDestinationsOwnNameAmongItsNeighbours) {
  write(folder / "Applications/Other.app/file", "other");
  expectSuccess(replace(oldApp, newApp));
  EXPECT_EQ(read(folder / "Applications/Other.app/file"), "other");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder / "Applications"), {}), 2);
}

TEST_F(ReplaceItem, RenamesTheSourceWithoutCopyingIt) {
  const auto inode = statusOf(newApp / "Contents/Info.plist").st_ino;
  expectSuccess(replace(oldApp, newApp));
  EXPECT_EQ(statusOf(oldApp / "Contents/Info.plist").st_ino, inode);
}

TEST_F(ReplaceItem, PutsTheSourceInPlaceWhenNothingIsThere) {
  fs::remove_all(oldApp);
  expectSuccess(replace(oldApp, newApp));
  EXPECT_EQ(read(oldApp / "Contents/Info.plist"), "version 2");
}

}  // namespace
}  // namespace ToolTests
