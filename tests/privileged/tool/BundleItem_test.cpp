#include "privileged/tool/BundleItem.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {
namespace {

using namespace AssistantTool;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

class BundleItemTest : public SignedBundleTest {
 protected:
  BundleItemTest() : descriptor(opened(bundle)) {}

  [[nodiscard]] std::string refusal(const std::string& path) const {
    return refusalOf([&] { BundleItem(descriptor.get(), path); });
  }

  const fs::path bundle = makeBundle();
  const posix::Descriptor descriptor;
};

TEST_F(BundleItemTest, DescribesFilesFoldersAndLinks) {
  const BundleItem file(descriptor.get(), "Contents/Linux/Controller");
  EXPECT_EQ(file.kind(), EntryKind::file);
  EXPECT_EQ(file.mode(), 0755U);
  EXPECT_EQ(file.size(), 11U);
  const BundleItem link(descriptor.get(), "ToFolder");
  EXPECT_EQ(link.kind(), EntryKind::link);
  EXPECT_EQ(link.size(), std::string("Contents/Resources").size());
  const BundleItem folder(descriptor.get(), ".");
  EXPECT_EQ(folder.kind(), EntryKind::folder);
  EXPECT_EQ(folder.size(), 0U);
}

TEST_F(BundleItemTest, TellsThePathsOfAFoldersContents) {
  EXPECT_THAT(BundleItem(descriptor.get(), ".").contents(), UnorderedElementsAre("Contents", "ToFolder"));
  EXPECT_THAT(BundleItem(descriptor.get(), "Contents/Resources").contents(), ElementsAre("Contents/Resources/a b%\n\xFF"));
}

TEST_F(BundleItemTest, ALinksDigestIsThatOfItsTarget) {
  writeWithMode(bundle / "target", "Contents/Resources");
  EXPECT_EQ(BundleItem(descriptor.get(), "ToFolder").digest(), BundleItem(descriptor.get(), "target").digest());
}

TEST_F(BundleItemTest, NothingOutsideOrBehindALinkIsOpened) {
  EXPECT_THAT(refusal("../publisher.pub"), HasSubstr("../publisher.pub"));
  EXPECT_THAT(refusal("/etc/passwd"), HasSubstr("/etc/passwd"));
  EXPECT_THAT(refusal("ToFolder/a b%\n\xFF"), HasSubstr("cannot open"));
  EXPECT_THAT(refusal("Contents/nothing"), HasSubstr("missing from the bundle: Contents/nothing"));
}

TEST_F(BundleItemTest, ALinkIsNotMissingWhereverItLeads) {
  fs::create_symlink("nowhere", bundle / "dangling");
  EXPECT_FALSE(isMissing(descriptor.get(), "dangling"));
  EXPECT_FALSE(isMissing(descriptor.get(), "ToFolder"));
  EXPECT_TRUE(isMissing(descriptor.get(), "nowhere"));
  EXPECT_THAT(refusalOf([&] { isMissing(descriptor.get(), "ToFolder/a b%\n\xFF"); }), HasSubstr("cannot open"));
}

TEST_F(BundleItemTest, APipeIsRefusedWithoutWaitingForAWriter) {
  ASSERT_EQ(::mkfifo((bundle / "pipe").c_str(), 0644), 0);
  EXPECT_EQ(refusal("pipe"), "a device, socket or pipe is in the bundle: pipe");
}

TEST_F(BundleItemTest, AMountInTheBundleIsRefused) {
  fs::create_directory(bundle / "mount");
  const pid_t child = ::fork();
  if (child == 0) {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("test", (bundle / "mount").c_str(), "tmpfs", 0, "mode=755") != 0)
      ::_exit(2);
    const auto inside = opened(bundle);
    const auto reason = refusalOf([&] { BundleItem(inside.get(), "mount"); });
    ::_exit(reason == "on another file system than the bundle: mount" ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WEXITSTATUS(status) == 2 && ::geteuid() != 0) GTEST_SKIP() << "only root mounts";
  EXPECT_EQ(status, 0);
}

TEST_F(BundleItemTest, AFileThatGrowsOrShrinksWhileItIsReadIsRefused) {
  const auto refusalOfSize = [&](const char* path, std::uint64_t size) {
    return refusalOf([&] { digestOfFile(opened(path).get(), size, "file"); });
  };
  constexpr const char* reason = "a file changed while it was read: file";
  EXPECT_EQ(refusalOfSize("/dev/zero", 100), reason) << "it never ends";
  EXPECT_EQ(refusalOfSize("/dev/null", 1), reason);
  EXPECT_EQ(refusalOfSize("/dev/null", 0), "");
}

TEST_F(BundleItemTest, NoMoreOfAFileIsReadThanItsReaderTakes) {
  EXPECT_EQ(refusalOf([&] { contentsOfFile(opened("/dev/zero").get(), 10'000, "file"); }), "file is too long");
  writeWithMode(bundle / "file", "12345");
  EXPECT_EQ(contentsOfFile(opened(bundle / "file").get(), 5, "file"), "12345");
  EXPECT_NE(refusalOf([&] { contentsOfFile(opened(bundle / "file").get(), 4, "file"); }), "");
}

}  // namespace
}  // namespace tests::tool
