#include "privileged/tool/Folder.h"

#include <fcntl.h>

#include "privileged/tool/Failure.h"
#include "tests/privileged/tool/ToolRun.h"

namespace tests::tool {
namespace {

using AssistantTool::linkTargetOf;

class LinkTargetOf : public ToolTest {
 protected:
  LinkTargetOf() {
    write(folder / "file", "");
    fs::create_symlink("target", folder / "link");
  }
  [[nodiscard]] posix::Descriptor opened(const char* name) const {
    return posix::Descriptor(::open((folder / name).c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  }
};

TEST_F(LinkTargetOf, IsTheTextOfTheLink) {
  EXPECT_EQ(linkTargetOf(opened(".").get(), "link"), "target");
  EXPECT_EQ(linkTargetOf(opened("link").get(), ""), "target");
}

TEST_F(LinkTargetOf, IsEmptyWhereThereIsNoLink) {
  EXPECT_EQ(linkTargetOf(opened(".").get(), "missing"), "");
  EXPECT_EQ(linkTargetOf(opened(".").get(), "file"), "");
}

TEST_F(LinkTargetOf, ThatCannotBeReadIsAFailure) {
  EXPECT_THROW(linkTargetOf(opened("file").get(), "link"), AssistantTool::Failure);
  EXPECT_THROW(linkTargetOf(opened(".").get(), std::string(NAME_MAX + 1, 'a')), AssistantTool::Failure);
}

}  // namespace
}  // namespace tests::tool
