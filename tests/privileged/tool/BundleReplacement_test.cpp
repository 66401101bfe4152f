// Which bundle may take the place of which: identifiers, versions, keys and the administrator's policy.
#include "privileged/tool/BundleIdentity.h"
#include "privileged/tool/BundleVerification.h"
#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {
namespace {

using namespace AssistantTool;
using ::testing::HasSubstr;
using Unsigned = SignaturePolicy::Unsigned;

BundleIdentity signedAs(const std::string& identifier, const std::string& version) {
  return {.identifier = identifier, .version = version, .isSigned = true, .key = {}};
}
BundleIdentity unsignedAs(const std::string& identifier, const std::string& version) {
  return {.identifier = identifier, .version = version, .isSigned = false, .key = {}};
}

std::string foreign(const BundleIdentity& replacement, const BundleIdentity& installed) {
  return refusalOf([&] { refuseForeignIdentifier(replacement, installed); });
}
std::string downgrade(const BundleIdentity& replacement, const BundleIdentity& installed) {
  return refusalOf([&] { refuseDowngrade(replacement, installed); });
}

TEST(BundleIdentity, AnotherIdentifierIsRefusedWhenEitherIsSigned) {
  constexpr const char* reason = "another bundle is installed: b instead of a";
  EXPECT_EQ(foreign(signedAs("a", "1"), signedAs("b", "1")), reason);
  EXPECT_EQ(foreign(signedAs("a", "1"), unsignedAs("b", "1")), reason);
  EXPECT_EQ(foreign(unsignedAs("a", "1"), signedAs("b", "1")), reason);
  EXPECT_EQ(foreign(unsignedAs("a", "1"), unsignedAs("b", "1")), "");
  EXPECT_EQ(foreign(signedAs("a", "1"), signedAs("a", "1")), "");
  EXPECT_EQ(foreign(signedAs("a", "1"), unsignedAs("a", "1")), "");
}

TEST(BundleIdentity, AnUnknownIdentifierIsAnotherOne) {
  EXPECT_EQ(foreign(signedAs("a", "1"), {}), "another bundle is installed: unknown instead of a");
  EXPECT_EQ(foreign({}, signedAs("a", "1")), "another bundle is installed: a instead of unknown");
  EXPECT_EQ(foreign({}, {}), "");
}

TEST(BundleIdentity, ALowerVersionIsRefusedWhenEitherIsSigned) {
  constexpr const char* reason = "a downgrade is not allowed: version 1.9 over the installed 1.10";
  EXPECT_EQ(downgrade(signedAs("a", "1.9"), signedAs("a", "1.10")), reason);
  EXPECT_EQ(downgrade(signedAs("a", "1.9"), unsignedAs("a", "1.10")), reason);
  EXPECT_EQ(downgrade(unsignedAs("a", "1.9"), signedAs("a", "1.10")), reason);
  EXPECT_EQ(downgrade(unsignedAs("a", "1.9"), unsignedAs("a", "1.10")), "");
  EXPECT_EQ(downgrade(signedAs("a", "1.10"), signedAs("a", "1.10")), "") << "repairing";
  EXPECT_EQ(downgrade(signedAs("a", "2"), signedAs("a", "1.10")), "");
}

TEST(BundleIdentity, VersionsThatCannotBeComparedAreRefused) {
  EXPECT_EQ(downgrade(signedAs("a", "1"), unsignedAs("a", "")),
            "cannot compare the versions: 1 over the installed unknown");
  EXPECT_THAT(downgrade(unsignedAs("a", ""), signedAs("a", "1")), HasSubstr("cannot compare the versions"));
}

TEST(BundleIdentity, AKeyThatTheManifestDoesNotAnnounceIsRefused) {
  auto replacement = signedAs("a", "2");
  auto installed = signedAs("a", "1");
  const Minisign::PublicKey old{.identifier = {1}, .point = {}};
  const Minisign::PublicKey another{.identifier = {3}, .point = {}};
  const auto refusal = [&](const std::optional<Minisign::PublicKey>& previous) {
    return refusalOf([&] { refuseOtherKey(replacement, previous, installed); });
  };
  replacement.key = {2};
  EXPECT_EQ(refusal(std::nullopt), "") << "the installed one is not signed";
  installed.key = old.identifier;
  EXPECT_THAT(refusal(std::nullopt), HasSubstr("signed with key 1, which"));
  EXPECT_THAT(refusal(another), HasSubstr("does not name as the previous one"));
  EXPECT_EQ(refusal(old), "");
  replacement.key = old.identifier;
  EXPECT_EQ(refusal(std::nullopt), "") << "the same key";
}

class BundleReplacementTest : public SignedBundleTest {
 protected:
  BundleReplacementTest() { keys = {publisher.trusted()}; }

  BundleIdentity verify(const std::string& replacement, const std::string& installed = "nothing") {
    const auto parent = opened(folder.path());
    return verifyReplacement({parent.get(), replacement}, identityOf(parent.get(), installed), keys, policy);
  }
  std::string refusal(const std::string& replacement, const std::string& installed = "nothing") {
    return refusalOf([&] { (void)verify(replacement, installed); });
  }
  std::optional<BundleIdentity> identity(const std::string& name) { return identityOf(opened(folder.path()).get(), name); }

  std::vector<TrustedKey> keys;
  SignaturePolicy policy;
};

TEST_F(BundleReplacementTest, WithoutKeysNothingIsChecked) {
  keys.clear();
  makeBundle();
  const auto broken = makeSignedBundle("Broken.app");
  fs::remove(broken / "Contents/Info.plist");
  EXPECT_EQ(refusal("App.app"), "");
  EXPECT_EQ(refusal("Broken.app", "App.app"), "");
}

TEST_F(BundleReplacementTest, ASignedBundleIsTakenAndTold) {
  makeSignedBundle();
  const auto found = verify("App.app");
  EXPECT_EQ(found.identifier, "com.example.App");
  EXPECT_EQ(found.version, "2.0");
  EXPECT_TRUE(found.isSigned);
  EXPECT_EQ(found.key, publisher.key().identifier);
}

TEST_F(BundleReplacementTest, ASignedBundleThatWasChangedIsRefusedWhateverThePolicySays) {
  policy = {.unsignedBundles = Unsigned::allow, .areDowngradesAllowed = true, .isUnsignedGranted = true};
  writeWithMode(makeSignedBundle() / "extra", "");
  EXPECT_EQ(refusal("App.app"), "not in the manifest: extra");
}

TEST_F(BundleReplacementTest, AnUnsignedBundleIsLetThroughAsThePolicySays) {
  makeBundle();
  EXPECT_EQ(refusal("App.app"), "the bundle is not signed");
  policy.isUnsignedGranted = true;
  EXPECT_EQ(refusal("App.app"), "the bundle is not signed") << "the grant is for \"ask\" only";
  policy = {.unsignedBundles = Unsigned::ask, .areDowngradesAllowed = false, .isUnsignedGranted = false};
  EXPECT_EQ(refusal("App.app"), "the bundle is not signed, and nobody granted that");
  policy.isUnsignedGranted = true;
  EXPECT_EQ(refusal("App.app"), "");
  policy = {.unsignedBundles = Unsigned::allow, .areDowngradesAllowed = false, .isUnsignedGranted = false};
  EXPECT_EQ(refusal("App.app"), "");
  EXPECT_FALSE(verify("App.app").isSigned);
}

TEST_F(BundleReplacementTest, APlainFileIsAnUnsignedItem) {
  writeWithMode(folder.path("file"), "text");
  EXPECT_EQ(refusal("file"), "the bundle is not signed");
  policy.unsignedBundles = Unsigned::allow;
  EXPECT_EQ(refusal("file"), "");
}

TEST_F(BundleReplacementTest, ALinkToASignedBundleIsAnUnsignedItem) {
  makeSignedBundle();
  fs::create_symlink("App.app", folder.path("Link.app"));
  EXPECT_EQ(refusal("Link.app"), "the bundle is not signed");
}

TEST_F(BundleReplacementTest, ADowngradeIsRefusedUnlessThePolicyAllowsIt) {
  makeSignedBundle("New.app", "com.example.App", "1.0");
  makeSignedBundle("App.app", "com.example.App", "2.0");
  EXPECT_EQ(refusal("New.app", "App.app"), "a downgrade is not allowed: version 1.0 over the installed 2.0");
  policy.areDowngradesAllowed = true;
  EXPECT_EQ(refusal("New.app", "App.app"), "");
}

TEST_F(BundleReplacementTest, ADowngradeOfAnUnsignedBundleIsRefused) {
  makeSignedBundle("New.app", "com.example.App", "1.0");
  makeBundle("App.app", "com.example.App", "2.0");
  EXPECT_EQ(refusal("New.app", "App.app"), "a downgrade is not allowed: version 1.0 over the installed 2.0");
}

TEST_F(BundleReplacementTest, AnUpgradeAndTheSameVersionAreTaken) {
  makeSignedBundle("New.app", "com.example.App", "2.0");
  makeSignedBundle("Old.app", "com.example.App", "1.0");
  makeBundle("Unsigned.app", "com.example.App", "1.0");
  for (const char* installed : {"New.app", "Old.app", "Unsigned.app"})
    EXPECT_EQ(refusal("New.app", installed), "") << installed;
}

TEST_F(BundleReplacementTest, AForeignIdentifierIsRefusedWhateverThePolicySays) {
  policy = {.unsignedBundles = Unsigned::allow, .areDowngradesAllowed = true, .isUnsignedGranted = true};
  makeSignedBundle("New.app", "com.example.App");
  makeBundle("UnsignedNew.app", "com.example.App");
  makeSignedBundle("Other.app", "com.example.Other");
  makeBundle("UnsignedOther.app", "com.example.Other");
  constexpr const char* reason = "another bundle is installed: com.example.Other instead of com.example.App";
  EXPECT_EQ(refusal("New.app", "Other.app"), reason);
  EXPECT_EQ(refusal("New.app", "UnsignedOther.app"), reason);
  EXPECT_EQ(refusal("UnsignedNew.app", "Other.app"), reason);
  EXPECT_EQ(refusal("UnsignedNew.app", "UnsignedOther.app"), "");
}

TEST_F(BundleReplacementTest, ASignedBundleDoesNotReplaceWhatIsNotABundle) {
  makeSignedBundle();
  writeWithMode(folder.path("file"), "text");
  writeWithMode(folder.path("folder/Contents/Info.plist"), "bplist00");
  for (const char* installed : {"file", "folder"})
    EXPECT_EQ(refusal("App.app", installed), "another bundle is installed: unknown instead of com.example.App");
}

TEST_F(BundleReplacementTest, ANewKeyIsTakenWhenTheManifestNamesTheOldOne) {
  makeSignedBundle("App.app", "com.example.App", "1.0");
  const KeyPair successor(folder, "successor");
  keys.push_back(successor.trusted());
  const auto update = makeBundle("New.app");
  ASSERT_TRUE(writeManifest(update));
  successor.sign(manifestOfBundle(update));
  EXPECT_THAT(refusal("New.app", "App.app"), HasSubstr("does not name as the previous one"));
  ASSERT_TRUE(writeManifest(update, "--previous-key " + Minisign::textOf(publisher.key())));
  successor.sign(manifestOfBundle(update));
  EXPECT_EQ(refusal("New.app", "App.app"), "");
}

TEST_F(BundleReplacementTest, TheManifestTellsWhatIsInstalledBeforeTheInformationListDoes) {
  const auto bundle = makeBundle();
  ASSERT_TRUE(writeManifest(bundle, "--identifier com.example.Signed --version 3"));
  auto found = identity("App.app");
  EXPECT_EQ(found->identifier, "com.example.Signed");
  EXPECT_EQ(found->version, "3");
  EXPECT_TRUE(found->isSigned);
  EXPECT_EQ(found->key, std::nullopt) << "not signed yet";
  publisher.sign(manifestOfBundle(bundle));
  EXPECT_EQ(identity("App.app")->key, publisher.key().identifier);
  tests::writeFile(manifestOfBundle(bundle), "broken");
  found = identity("App.app");
  EXPECT_EQ(found->identifier, "com.example.App");
  EXPECT_EQ(found->version, "2.0");
  EXPECT_FALSE(found->isSigned);
}

TEST_F(BundleReplacementTest, AnIdentityThatCannotBeReadIsUnknown) {
  EXPECT_EQ(identity("nothing"), std::nullopt);
  makeBundle("Odd.app", "not an identifier", "one");
  EXPECT_EQ(identity("Odd.app")->identifier, "");
  EXPECT_EQ(identity("Odd.app")->version, "");
}

}  // namespace
}  // namespace tests::tool
