// Going into folders: each way in which a name could lead elsewhere is refused by itself.
#include "privileged/tool/Folder.h"

#include "privileged/tool/Tree.h"
#include "tests/privileged/tool/Namespace.h"

namespace tests::tool {
namespace {

using AssistantTool::openFolderIn;

class OpenFolderIn : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    fs::create_directories(folder / "inside/inner");
    fs::create_directories(folder / "outside/inner");
    fs::create_directory_symlink(folder / "outside", folder / "inside/absolute");
    fs::create_directory_symlink("inner", folder / "inside/near");
    parent = posix::Descriptor(::open((folder / "inside").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  int errorOf(const std::string& name) {
    errno = 0;
    return openFolderIn(parent.get(), name) ? 0 : errno;
  }

  posix::Descriptor parent;
};

TEST_F(OpenFolderIn, OpensAFolder) { EXPECT_EQ(errorOf("inner"), 0); }

TEST_F(OpenFolderIn, RefusesTheFolderAbove) { EXPECT_EQ(errorOf(".."), EXDEV); }

TEST_F(OpenFolderIn, RefusesAnAbsolutePath) { EXPECT_EQ(errorOf((folder / "outside").string()), EXDEV); }

TEST_F(OpenFolderIn, RefusesALink) { EXPECT_EQ(errorOf("near"), ELOOP); }

TEST_F(OpenFolderIn, RefusesALinkOnTheWay) { EXPECT_EQ(errorOf("near/."), ELOOP); }

TEST_F(OpenFolderIn, RefusesAMount) {
  volume("inside/mount");
  EXPECT_EQ(errorOf("mount"), EXDEV);
}

// A link is given away itself, and not what it leads to; and the same on the way back.
TEST_F(OpenFolderIn, AdoptionGivesLinksAndNotTheirTargets) {
  write(folder / "outside/file", "root's");
  fs::create_directory(folder / "inside/tree");
  fs::create_symlink(folder / "outside/file", folder / "inside/tree/link");
  EXPECT_EQ(::lchown((folder / "inside/tree/link").c_str(), invokingUser, invokingGroup), 0);
  EXPECT_EQ(::lchown((folder / "inside/tree").c_str(), invokingUser, invokingGroup), 0);
  EXPECT_EQ(::lchown((folder / "outside/file").c_str(), invokingUser + 2, invokingGroup + 2), 0);
  AssistantTool::Adoption adoption(AssistantTool::Owner{.user = 0, .group = 0});
  adoption.apply(parent.get(), "tree");
  EXPECT_EQ(statusOf(folder / "inside/tree/link").st_uid, 0U);
  EXPECT_EQ(statusOf(folder / "outside/file").st_uid, invokingUser + 2);
  adoption.undo(parent.get(), "tree");
  EXPECT_EQ(statusOf(folder / "inside/tree/link").st_uid, invokingUser);
  EXPECT_EQ(statusOf(folder / "outside/file").st_uid, invokingUser + 2);
}

TEST_F(OpenFolderIn, AdoptionDropsSetIDBitsInPlace) {
  write(folder / "inside/tree/file", "program");
  for (const char* name : {"inside/tree", "inside/tree/file"}) EXPECT_EQ(::chmod((folder / name).c_str(), 06755), 0);
  AssistantTool::Adoption adoption(std::nullopt);
  adoption.apply(parent.get(), "tree");
  for (const char* name : {"inside/tree", "inside/tree/file"})
    EXPECT_EQ(statusOf(folder / name).st_mode & ALLPERMS, 0755U) << name;
}

}  // namespace
}  // namespace tests::tool
