#include "privileged/tool/ServerBrand.h"

#include <unistd.h>

#include "tests/privileged/tool/Brand.h"
#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {
namespace {

using AssistantTool::serverOfApplication;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class ServerBrandTest : public ::testing::Test {
 protected:
  ServerBrandTest() { fs::create_directory(brands); }

  void put(const std::string& text) const { writeWithMode(brands / "com.acme.editor.plist", text); }
  [[nodiscard]] protocol::Branding::Server serverOf(const std::string& application, uid_t owner = ::geteuid()) const {
    return serverOfApplication(application, brands, owner);
  }
  [[nodiscard]] std::string refusal(uid_t owner = ::geteuid()) const {
    return refusalOf([&] { (void)serverOf("com.acme.editor", owner); });
  }

  tests::TemporaryFolder folder;
  const fs::path brands = folder.path("brands.d");
};

TEST_F(ServerBrandTest, IsKeltosForEveryApplicationWithoutABrand) {
  put(brandOf("com.acme.editor"));
  for (const char* application : {"", "com.acme", "com.acme.editor2", ".", ".."})
    EXPECT_EQ(serverOf(application), protocol::Branding::Server()) << application;
  fs::remove_all(brands);
  EXPECT_EQ(serverOf("com.acme.editor"), protocol::Branding::Server());
}

TEST_F(ServerBrandTest, IsTheOneThatRootNamesForTheApplication) {
  put(brandOf("com.acme.editor"));
  EXPECT_EQ(serverOf("com.acme.editor"),
            (protocol::Branding::Server{.name = "Acme Server",
                                        .label = "com.acme.editor.server",
                                        .program = "Application Support/Acme/AcmeServer",
                                        .definition = "LaunchDaemons/com.acme.editor.server.plist",
                                        .marker = "/Users/Shared/Acme/Shares.plist"}));
}

TEST_F(ServerBrandTest, IsRefusedWhenTheBrandIsWrong) {
  put(brandOf("com.acme.other"));
  EXPECT_THAT(refusal(), StartsWith(brands.string() + "/com.acme.editor.plist: it is the brand of com.acme.other"));
  put(brandOf("com.acme.editor", ""));
  EXPECT_THAT(refusal(), HasSubstr("it names no server"));
  put(brandOf("com.acme.editor", "../../../etc/cron.d/evil"));
  EXPECT_THAT(refusal(),
              HasSubstr(std::string("the value of ") + protocol::brandingKey::serverLabel + " is not an identifier"));
  put("bplist00");
  EXPECT_THAT(refusal(), HasSubstr("cannot read the property list"));
  put("");
  EXPECT_THAT(refusal(), HasSubstr("cannot read the property list"));
  put(std::string(protocol::maximumBrandingBytes + 1, ' '));
  EXPECT_NE(refusal(), "");
}

TEST_F(ServerBrandTest, IsRefusedWhenOthersCouldHaveWrittenTheBrand) {
  put(brandOf("com.acme.editor"));
  fs::permissions(brands / "com.acme.editor.plist", fs::perms(0666));
  EXPECT_THAT(refusal(), HasSubstr("others can write"));
  fs::permissions(brands / "com.acme.editor.plist", fs::perms(0644));
  fs::permissions(brands, fs::perms(0777));
  EXPECT_THAT(refusal(), HasSubstr("others can write"));
  fs::permissions(brands, fs::perms(0755));
  EXPECT_THAT(refusal(::geteuid() + 1), HasSubstr("not root's"));
  fs::rename(brands / "com.acme.editor.plist", brands / "other");
  fs::create_symlink("other", brands / "com.acme.editor.plist");
  EXPECT_THAT(refusal(), HasSubstr("cannot open"));
}

}  // namespace
}  // namespace tests::tool
