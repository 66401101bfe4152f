#include "privileged/tool/TrustedKeys.h"

#include <unistd.h>

#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {
namespace {

using namespace AssistantTool;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class TrustedKeysTest : public ::testing::Test {
 protected:
  TrustedKeysTest() { fs::create_directory(trust); }

  void put(const std::string& name, const std::string& text) const { writeWithMode(trust / name, text); }
  [[nodiscard]] std::vector<TrustedKey> keys(uid_t owner = ::geteuid()) const { return trustedKeys(trust, owner); }
  [[nodiscard]] std::string refusal(uid_t owner = ::geteuid()) const {
    return refusalOf([&] { (void)keys(owner); });
  }

  tests::TemporaryFolder folder;
  const fs::path trust = folder.path("trust.d");
  KeyPair acme{folder, "acme"};
};

TEST_F(TrustedKeysTest, WithoutTheFolderThereAreNoKeys) {
  fs::remove(trust);
  EXPECT_THAT(keys(), IsEmpty());
}

TEST_F(TrustedKeysTest, AnEmptyFolderHasNoKeys) { EXPECT_THAT(keys(), IsEmpty()); }

TEST_F(TrustedKeysTest, EachKeyIsNamedAfterItsFile) {
  const KeyPair other(folder, "other");
  put("b.pub", acme.file());
  put("a.pub", other.file());
  const auto found = keys();
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].name, "a");
  EXPECT_EQ(found[0].key, other.key());
  EXPECT_EQ(found[1].name, "b");
  EXPECT_EQ(found[1].key, acme.key());
}

TEST_F(TrustedKeysTest, AKeyWithoutAListMaySignEveryBundle) {
  put("acme.pub", acme.file());
  EXPECT_TRUE(keys().at(0).maySign("com.example.App"));
}

TEST_F(TrustedKeysTest, AKeyWithAListMaySignOnlyThese) {
  put("acme.pub", acme.file());
  put("acme.identifiers", "# our products\ncom.acme.One\n\ncom.acme.Two");
  const auto key = keys().at(0);
  EXPECT_THAT(key.identifiers, ElementsAre("com.acme.One", "com.acme.Two"));
  EXPECT_TRUE(key.maySign("com.acme.One"));
  EXPECT_TRUE(key.maySign("com.acme.Two"));
  for (const char* other : {"com.acme.Three", "com.acme", "com.acme.One.More", "COM.ACME.ONE", ""})
    EXPECT_FALSE(key.maySign(other)) << other;
}

TEST_F(TrustedKeysTest, OtherFilesAreLeftAlone) {
  put("acme.pub", acme.file());
  put("README", "text");
  put("acme.pub.old", "not a key");
  EXPECT_EQ(keys().size(), 1U);
}

TEST_F(TrustedKeysTest, AFileThatHoldsNoKeyIsRefused) {
  put("acme.pub", acme.file());
  put("broken.pub", "");
  EXPECT_THAT(refusal(), HasSubstr("trust.d/broken.pub: not a public key"));
}

TEST_F(TrustedKeysTest, AFileThatIsTooLongIsRefused) {
  put("acme.pub", acme.file() + std::string(100'000, 'x'));
  EXPECT_THAT(refusal(), EndsWith("acme.pub is too long"));
}

TEST_F(TrustedKeysTest, AListWithoutAKeyIsRefused) {
  put("acme.pub", acme.file());
  put("acne.identifiers", "com.acme.One\n");
  EXPECT_THAT(refusal(), HasSubstr("acne.identifiers belongs to no key"));
}

TEST_F(TrustedKeysTest, AListWithoutAnIdentifierIsRefused) {
  put("acme.pub", acme.file());
  put("acme.identifiers", "# nothing yet\n");
  EXPECT_THAT(refusal(), HasSubstr("acme.identifiers: it lists no bundle identifier"));
}

TEST_F(TrustedKeysTest, AListWithAnythingButIdentifiersIsRefused) {
  put("acme.pub", acme.file());
  for (const char* line : {"com.acme.*", " com.acme.One", "com.acme.One\r"}) {
    put("acme.identifiers", std::string("com.acme.Two\n") + line + "\n");
    EXPECT_THAT(refusal(), HasSubstr("is not a bundle identifier")) << line;
  }
}

TEST_F(TrustedKeysTest, AFileThatOthersCanWriteIsRefused) {
  for (const char* name : {"acme.pub", "acme.identifiers"}) {
    put("acme.pub", acme.file());
    put("acme.identifiers", "com.acme.One");
    for (const auto writers : {fs::perms::group_write, fs::perms::others_write}) {
      fs::permissions(trust / name, fs::perms(0644) | writers);
      EXPECT_THAT(refusal(), EndsWith(std::string("others can write ") + (trust / name).string()));
    }
  }
}

TEST_F(TrustedKeysTest, AFolderThatOthersCanWriteIsRefused) {
  fs::permissions(trust, fs::perms(0775));
  EXPECT_THAT(refusal(), EndsWith("others can write " + trust.string()));
}

TEST_F(TrustedKeysTest, AFolderThatOthersCanTakeAwayIsRefused) {
  fs::permissions(folder.path(), fs::perms(0777));
  EXPECT_THAT(refusal(), EndsWith("others can write the folder above " + trust.string()));
}

TEST_F(TrustedKeysTest, AFolderOfSomeoneElseIsRefused) {
  EXPECT_THAT(refusal(::geteuid() + 1), EndsWith("not root's: " + trust.string()));
}

TEST_F(TrustedKeysTest, AFileOfSomeoneElseIsRefused) {
  put("acme.pub", acme.file());
  if (::chown((trust / "acme.pub").c_str(), ::geteuid() + 1, ::getegid()) != 0)
    GTEST_SKIP() << "only root gives files away";
  EXPECT_THAT(refusal(), EndsWith("not root's: " + (trust / "acme.pub").string()));
}

TEST_F(TrustedKeysTest, ALinkIsNotFollowed) {
  fs::create_symlink(folder.path("acme.pub"), trust / "acme.pub");
  EXPECT_THAT(refusal(), HasSubstr("cannot open " + (trust / "acme.pub").string()));
}

TEST_F(TrustedKeysTest, AFolderThatIsALinkIsNotFollowed) {
  const auto link = folder.path("link.d");
  fs::create_symlink(trust, link);
  EXPECT_THAT(refusalOf([&] { (void)trustedKeys(link, ::geteuid()); }), HasSubstr("cannot open " + link));
}

TEST_F(TrustedKeysTest, APipeIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo((trust / "acme.pub").c_str(), 0644), 0);
  EXPECT_THAT(refusal(), HasSubstr("not a file"));
}

}  // namespace
}  // namespace tests::tool
