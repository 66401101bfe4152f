#include "platform/linux/authorizationd/ToolFolders.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/TemporaryFolder.h"

namespace {

using namespace platform::Linux::authorizationd;
using testing::HasSubstr;
namespace fs = std::filesystem;

class ToolFoldersTest : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directory(tools);
    makeProgram(tools + "/tool");
  }
  static void makeProgram(const std::string& path) {
    tests::writeFile(path, "#!/bin/sh\n");
    ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
  }
  std::string objection(const std::string& path) const {
    const posix::Descriptor program(::open(path.c_str(), O_PATH | O_CLOEXEC));
    return objectionAsTool(program.get(), {tools}, ::geteuid());
  }
  std::string policyCause(const std::string& contents, mode_t mode = 0644) {
    tests::writeFile(folder.path("policy"), contents);
    ::chmod(folder.path("policy").c_str(), mode);
    std::string cause;
    policy = readPolicy(folder.path("policy"), ::geteuid(), cause);
    return cause;
  }

  tests::TemporaryFolder folder;
  const std::string tools = folder.path("tools");
  protocol::Policy policy;
};

TEST_F(ToolFoldersTest, AProgramDirectlyInAListedFolderIsATool) { EXPECT_EQ(objection(tools + "/tool"), ""); }

TEST_F(ToolFoldersTest, AProgramElsewhereOrFurtherDownIsRefused) {
  makeProgram(folder.path("tool"));
  fs::create_directory(tools + "/below");
  makeProgram(tools + "/below/tool");
  EXPECT_THAT(objection(folder.path("tool")), HasSubstr("lies in no folder for tools"));
  EXPECT_THAT(objection(tools + "/below/tool"), HasSubstr("lies in no folder for tools"));
  EXPECT_THAT(objection("/bin/sh"), HasSubstr("lies in no folder for tools"));
}

TEST_F(ToolFoldersTest, ALinkToAToolIsTheToolAndALinkOutOfTheFolderIsNot) {
  fs::create_symlink(tools + "/tool", folder.path("link"));
  EXPECT_EQ(objection(folder.path("link")), "");
  fs::create_symlink("/bin/sh", tools + "/sh");
  EXPECT_THAT(objection(tools + "/sh"), HasSubstr("lies in no folder for tools"));
}

TEST_F(ToolFoldersTest, AFileThatLostItsNameIsRefused) {
  const posix::Descriptor program(::open((tools + "/tool").c_str(), O_PATH | O_CLOEXEC));
  fs::remove(tools + "/tool");
  makeProgram(tools + "/tool");
  EXPECT_THAT(objectionAsTool(program.get(), {tools}, ::geteuid()), HasSubstr("lies in no folder for tools"));
}

TEST_F(ToolFoldersTest, AToolOrFolderThatOthersCanWriteIsRefused) {
  ASSERT_EQ(::chmod((tools + "/tool").c_str(), 0775), 0);
  EXPECT_THAT(objection(tools + "/tool"), HasSubstr("the program is writable by others"));
  ASSERT_EQ(::chmod((tools + "/tool").c_str(), 0755), 0);
  for (const mode_t mode : {0775, 0757, 01777}) {
    ASSERT_EQ(::chmod(tools.c_str(), mode), 0);
    EXPECT_THAT(objection(tools + "/tool"), HasSubstr("can be written by others")) << mode;
  }
}

TEST_F(ToolFoldersTest, AFolderBelowOneThatOthersCanWriteIsRefusedUnlessThatIsSticky) {
  ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
  EXPECT_THAT(objection(tools + "/tool"), HasSubstr(folder.path() + " can be written by others"));
  ASSERT_EQ(::chmod(folder.path().c_str(), 01777), 0);
  EXPECT_EQ(objection(tools + "/tool"), "");
}

TEST_F(ToolFoldersTest, AFolderReachedThroughALinkIsRefused) {
  fs::rename(tools, folder.path("real"));
  fs::create_symlink("real", tools);
  EXPECT_THAT(objection(folder.path("real/tool")), HasSubstr("a folder for tools is of no use"));
}

TEST_F(ToolFoldersTest, AToolOrFolderOfAnotherUserIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a file that belongs to somebody else";
  ASSERT_EQ(::chown((tools + "/tool").c_str(), 65534, 65534), 0);
  EXPECT_THAT(objection(tools + "/tool"), HasSubstr("the program belongs to another user"));
  ASSERT_EQ(::chown(tools.c_str(), 65534, 65534), 0);
  EXPECT_THAT(objection(tools + "/tool"), HasSubstr("belongs to another user"));
}

TEST_F(ToolFoldersTest, WithoutAPolicyFileTheDefaultsHold) {
  std::string cause;
  EXPECT_EQ(readPolicy(folder.path("missing/policy"), ::geteuid(), cause), protocol::Policy());
  EXPECT_EQ(readPolicy(folder.path("policy"), ::geteuid(), cause), protocol::Policy());
  EXPECT_EQ(cause, "");
}

TEST_F(ToolFoldersTest, APolicyFileIsRead) {
  EXPECT_EQ(policyCause("tools = /opt/tools\n"), "");
  EXPECT_EQ(policy.tools, std::vector<std::string>{"/opt/tools"});
}

TEST_F(ToolFoldersTest, APolicyFileThatCannotBeBelievedListsNoTool) {
  EXPECT_THAT(policyCause("tools = /opt/tools\n", 0664), HasSubstr("can be written by others"));
  EXPECT_EQ(policy, protocol::strictestPolicy());
  ::chmod(folder.path("policy").c_str(), 0644);
  EXPECT_THAT(policyCause("unsinged = refuse\n"), HasSubstr("is refused: line 1: an unknown key"));
  EXPECT_EQ(policy, protocol::strictestPolicy());
  ::chmod(folder.path().c_str(), 0777);
  EXPECT_THAT(policyCause(""), HasSubstr("can be written by others"));
  EXPECT_EQ(policy, protocol::strictestPolicy());
}

TEST_F(ToolFoldersTest, APolicyFileThatIsALinkOrNoFileIsRefused) {
  fs::create_symlink("/dev/null", folder.path("link"));
  ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0644), 0);
  for (const char* name : {"link", "pipe", "tools"}) {
    std::string cause;
    EXPECT_EQ(readPolicy(folder.path(name), ::geteuid(), cause), protocol::strictestPolicy()) << name;
    EXPECT_NE(cause, "") << name;
  }
}

}  // namespace
