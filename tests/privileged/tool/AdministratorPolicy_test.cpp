#include "privileged/tool/AdministratorPolicy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/TemporaryFolder.h"

namespace tests::tool {
namespace {

namespace fs = std::filesystem;
using AssistantTool::administratorPolicy;
using Unsigned = protocol::Policy::Unsigned;

class AdministratorPolicyTest : public testing::Test {
 protected:
  AdministratorPolicyTest() {
    fs::create_directory(policy.parent_path());
    fs::permissions(policy.parent_path(), fs::perms(0755));
  }
  void writePolicy(const std::string& text, unsigned mode = 0644) const {
    tests::writeFile(policy, text);
    fs::permissions(policy, fs::perms(mode));
  }
  // The policy is the strictest, for this reason.
  void expectRefusal(const std::string& reason) const {
    std::string cause;
    EXPECT_EQ(administratorPolicy(cause, policy, ::geteuid()), protocol::strictestPolicy());
    EXPECT_THAT(cause, testing::StartsWith(policy.string() + " is refused: "));
    EXPECT_THAT(cause, testing::HasSubstr(reason));
  }
  [[nodiscard]] protocol::Policy read() const {
    std::string cause;
    auto found = administratorPolicy(cause, policy, ::geteuid());
    EXPECT_EQ(cause, "");
    return found;
  }

  tests::TemporaryFolder folder;
  const fs::path policy = fs::path(folder.path("kelto")) / "authorization.conf";
};

TEST_F(AdministratorPolicyTest, IsTheDefaultWithoutAFile) { EXPECT_EQ(read(), protocol::Policy()); }

TEST_F(AdministratorPolicyTest, IsTheDefaultWithoutAFolder) {
  fs::remove(policy.parent_path());
  EXPECT_EQ(read(), protocol::Policy());
}

TEST_F(AdministratorPolicyTest, IsTheOneInTheFile) {
  writePolicy("unsigned = ask\ndowngrades = allow\nmaximum-entries = 7\n");
  const auto found = read();
  EXPECT_EQ(found.unsignedBundles, Unsigned::ask);
  EXPECT_TRUE(found.areDowngradesAllowed);
  EXPECT_EQ(found.maximumEntries, 7U);
}

TEST_F(AdministratorPolicyTest, IsTheStrictestWhenTheFileIsWrong) {
  writePolicy("unsigned = allow\ndowngrade = allow\n");
  expectRefusal("line 2: an unknown key");
}

TEST_F(AdministratorPolicyTest, IsTheStrictestWhenOthersCanWriteTheFile) {
  for (const unsigned mode : {0664U, 0646U}) {
    writePolicy("unsigned = allow\n", mode);
    expectRefusal("others can write");
  }
}

TEST_F(AdministratorPolicyTest, IsTheStrictestWhenOthersCanWriteItsFolder) {
  writePolicy("unsigned = allow\n");
  fs::permissions(policy.parent_path(), fs::perms(0775));
  expectRefusal("others can write");
}

TEST_F(AdministratorPolicyTest, IsTheStrictestWhenOthersCanWriteTheFolderAbove) {
  writePolicy("unsigned = allow\n");
  fs::permissions(folder.path(""), fs::perms(0777));
  expectRefusal("others can write the folder above");
}

TEST_F(AdministratorPolicyTest, IsTheStrictestWhenTheFileIsALink) {
  tests::writeFile(policy.parent_path() / "other", "unsigned = allow\n");
  fs::create_symlink("other", policy);
  expectRefusal("cannot open");
}

TEST_F(AdministratorPolicyTest, IsTheStrictestWhenItsFolderIsALink) {
  fs::rename(policy.parent_path(), folder.path("other"));
  fs::create_directory_symlink("other", policy.parent_path());
  writePolicy("unsigned = allow\n");
  expectRefusal("cannot open");
}

TEST_F(AdministratorPolicyTest, IsTheStrictestWhenTheFileBelongsToSomeoneElse) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  writePolicy("unsigned = allow\n");
  ASSERT_EQ(::chown(policy.c_str(), 65534, 65534), 0);
  expectRefusal("not root's");
}

TEST_F(AdministratorPolicyTest, IsTheStrictestWhenTheFileIsTooLong) {
  writePolicy(std::string(protocol::maximumPolicyFileBytes + 1, '\n'));
  expectRefusal("too long");
}

}  // namespace
}  // namespace tests::tool
