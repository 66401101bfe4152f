#include "tests/privileged/tool/HandBack.h"

#include <fcntl.h>

#include <memory>

#include "privileged/tool/Tree.h"

namespace tests::tool {
namespace {

TEST_P(HandBack, PutsNothingBackAsRootsThatTheUserCouldWrite) {
  // A user's move makes the job fail at few of the calls only.
  attackAtCalls(GetParam().failsByUser ? 1 : 3);
}
INSTANTIATE_TEST_SUITE_P(Of, HandBack, ::testing::ValuesIn(allAttacks), nameOfAttack);

class AdoptedTree : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    write(file, "program");
    parent = std::make_unique<Opened>(folder, O_RDONLY | O_DIRECTORY);
  }
  void adoptAndUndo(AssistantTool::Owner owner) {
    AssistantTool::Adoption adoption(owner);
    adoption.apply(parent->get(), "tree");
    EXPECT_EQ(statusOf(file).st_uid, owner.user);
    adoption.undo(parent->get(), "tree");
  }
  fs::path file = folder / "tree/file";
  std::unique_ptr<Opened> parent;
};

TEST_F(AdoptedTree, IsNotGivenBackByAUser) {
  ASSERT_EQ(::chmod(file.c_str(), 04755), 0);
  adoptAndUndo({.user = invokingUser, .group = invokingGroup});
  EXPECT_EQ(statusOf(file).st_uid, invokingUser);
  EXPECT_EQ(statusOf(file).st_mode & ALLPERMS, 0755U);
}

TEST_F(AdoptedTree, IsGivenBackByRootWithoutSetIDBits) {
  giveTree(folder / "tree", {.user = invokingUser, .group = invokingGroup});
  ASSERT_EQ(::chmod(file.c_str(), 06755), 0);
  ASSERT_EQ(::chmod(file.parent_path().c_str(), 02755), 0);
  adoptAndUndo({.user = 0, .group = 0});
  EXPECT_EQ(statusOf(file).st_uid, invokingUser);
  EXPECT_EQ(statusOf(file).st_gid, invokingGroup);
  EXPECT_EQ(statusOf(file).st_mode & ALLPERMS, 0755U);
  EXPECT_EQ(statusOf(file.parent_path()).st_mode & ALLPERMS, 02755U);
}

}  // namespace
}  // namespace tests::tool
