#include "tests/privileged/tool/Attackers.h"

namespace tests::tool {
namespace {

TEST_F(Attackers, TouchNothingOfRootsForSomeSeconds) { attackFor(std::chrono::seconds(4)); }

TEST_F(Attackers, TouchNothingOfRootsByASwapJustInTime) { swapAtEachCall(149); }

class LinksOfTheUser : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    becomeAnotherUsersTool();
    fs::create_directory_symlink(folder / "target", home() / "link");
    write(folder / "target/item", "item");
  }
};

TEST_F(LinksOfTheUser, AreNotFollowedToRootsFolders) {
  expectRefusal(remove(home() / "link/item"), "leads to a folder of someone else");
  EXPECT_EQ(read(folder / "target/item"), "item");
}

TEST_F(LinksOfTheUser, AreFollowedToFoldersOfTheUser) {
  giveToUser(folder / "target");
  expectSuccess(remove(home() / "link/item"));
  EXPECT_FALSE(isThere(folder / "target/item"));
}

TEST_F(LinksOfTheUser, LaidByRootInRootsFolderAreFollowedAnywhere) {
  fs::create_directory_symlink(folder / "target", folder / "rootlink");
  expectSuccess(remove(folder / "rootlink/item"));
}

}  // namespace
}  // namespace tests::tool
