#include "privileged/tool/BundleVerification.h"

#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "privileged/tool/BundleItem.h"
#include "privileged/tool/Rights.h"
#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {
namespace {

using namespace AssistantTool;
using ::testing::HasSubstr;

class BundleVerificationTest : public SignedBundleTest {
 protected:
  // Why the bundle is refused when only the publisher's key is trusted.
  std::string refusal(const fs::path& bundle) { return refusal(bundle, {publisher.trusted()}); }
  static std::string refusal(const fs::path& bundle, const std::vector<TrustedKey>& keys) {
    const auto descriptor = opened(bundle);
    return refusalOf([&] { verifyEntries(descriptor.get(), signedManifestOf(descriptor.get(), keys).manifest); });
  }
  // A bundle whose manifest the publisher signed after `change` was made to it.
  std::string refusalOfManifest(const std::function<void(std::string&)>& change) {
    const auto bundle = makeSignedBundle();
    auto text = tests::readFile(manifestOfBundle(bundle));
    change(text);
    tests::writeFile(manifestOfBundle(bundle), text);
    publisher.sign(manifestOfBundle(bundle));
    return refusal(bundle);
  }
};

TEST_F(BundleVerificationTest, ABundleAsItsPublisherSignedItIsTaken) {
  const auto bundle = makeSignedBundle();
  EXPECT_EQ(refusal(bundle), "");
  const auto found = signedManifestOf(opened(bundle).get(), {publisher.trusted()});
  EXPECT_EQ(found.manifest.identifier, "com.example.App");
  EXPECT_EQ(found.manifest.version, "2.0");
  EXPECT_EQ(found.keyName, "publisher");
  EXPECT_EQ(found.key, publisher.key().identifier);
}

TEST_F(BundleVerificationTest, TheOlderFormOfSignatureIsTaken) {
  const auto bundle = makeSignedBundle();
  publisher.sign(manifestOfBundle(bundle), "-l");
  EXPECT_EQ(refusal(bundle), "");
}

TEST_F(BundleVerificationTest, WorksAfterTheToolHasGivenUpItsRights) {
  const auto bundle = makeSignedBundle();
  const auto keys = std::vector{publisher.trusted()};
  const pid_t child = ::fork();
  if (child == 0) {
    giveUpRights();
    giveUpProgramsAndSockets();
    ::_exit(refusal(bundle, keys).empty() ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(BundleVerificationTest, AChangedByteIsRefused) {
  const auto bundle = makeSignedBundle();
  writeWithMode(bundle / "Contents/Linux/Controller", "Program 2.0", 0755);
  EXPECT_EQ(refusal(bundle), "the contents differ from the manifest: Contents/Linux/Controller");
}

TEST_F(BundleVerificationTest, AnotherSizeIsRefusedWithoutReadingTheFile) {
  const auto bundle = makeSignedBundle();
  fs::resize_file(bundle / "Contents/Linux/Controller", std::uintmax_t{1} << 40);
  EXPECT_EQ(refusal(bundle), "the contents differ from the manifest: Contents/Linux/Controller");
}

TEST_F(BundleVerificationTest, AChangedModeIsRefused) {
  const auto bundle = makeSignedBundle();
  for (const auto mode : {0644U, 0777U, 0775U, 04755U, 0700U}) {
    fs::permissions(bundle / "Contents/Linux/Controller", fs::perms(mode));
    EXPECT_THAT(refusal(bundle), HasSubstr(" instead of 0755: Contents/Linux/Controller"));
  }
}

TEST_F(BundleVerificationTest, AChangedModeOfAFolderOrTheBundleItselfIsRefused) {
  const auto bundle = makeSignedBundle();
  fs::permissions(bundle / "Contents", fs::perms(0777));
  EXPECT_EQ(refusal(bundle), "the mode 0777 instead of 0755: Contents");
  fs::permissions(bundle, fs::perms(01755));
  EXPECT_EQ(refusal(bundle), "the mode 1755 instead of 0755: .");
}

TEST_F(BundleVerificationTest, AMissingEntryIsRefused) {
  for (const char* path : {"Contents/Info.plist", "Contents/Linux", "ToFolder", "Contents/Resources/a b%\n\xFF"}) {
    const auto bundle = makeSignedBundle();
    fs::remove_all(bundle / path);
    EXPECT_EQ(refusal(bundle), "missing from the bundle: " + printable(path));
    fs::remove_all(bundle);
  }
}

TEST_F(BundleVerificationTest, AnExtraEntryIsRefusedWhereverItLies) {
  for (const char* path : {"extra", "Contents/extra", "Contents/Linux/extra", "Contents/_Signature/extra",
                           "Contents/_Signature/manifest.minisig.old"}) {
    const auto bundle = makeSignedBundle();
    writeWithMode(bundle / path, "");
    EXPECT_EQ(refusal(bundle), std::string("not in the manifest: ") + path);
    fs::remove_all(bundle);
  }
}

TEST_F(BundleVerificationTest, AnExtraFolderLinkOrPipeIsRefused) {
  const auto bundle = makeSignedBundle();
  fs::create_directory(bundle / "Contents/folder");
  EXPECT_EQ(refusal(bundle), "not in the manifest: Contents/folder");
  fs::remove(bundle / "Contents/folder");
  fs::create_symlink("Info.plist", bundle / "Contents/link");
  EXPECT_EQ(refusal(bundle), "not in the manifest: Contents/link");
  fs::remove(bundle / "Contents/link");
  ASSERT_EQ(::mkfifo((bundle / "Contents/pipe").c_str(), 0644), 0);
  EXPECT_EQ(refusal(bundle), "not in the manifest: Contents/pipe");
}

TEST_F(BundleVerificationTest, AnEntryOfAnotherKindIsRefused) {
  const auto bundle = makeSignedBundle();
  const auto program = bundle / "Contents/Linux/Controller";
  fs::remove(program);
  fs::create_symlink("../Info.plist", program);
  EXPECT_EQ(refusal(bundle), "a link instead of a file: Contents/Linux/Controller");
  fs::remove(program);
  fs::create_directory(program);
  EXPECT_EQ(refusal(bundle), "a folder instead of a file: Contents/Linux/Controller");
  fs::remove(program);
  ASSERT_EQ(::mkfifo(program.c_str(), 0755), 0);
  EXPECT_EQ(refusal(bundle), "a device, socket or pipe is in the bundle: Contents/Linux/Controller");
}

TEST_F(BundleVerificationTest, AFolderReplacedByALinkToItsCopyIsRefused) {
  const auto bundle = makeSignedBundle();
  fs::rename(bundle / "Contents/Linux", folder.path("Linux"));
  fs::create_symlink(folder.path("Linux"), bundle / "Contents/Linux");
  EXPECT_EQ(refusal(bundle), "a link instead of a folder: Contents/Linux");
}

TEST_F(BundleVerificationTest, ALinkWithAnotherTargetIsRefused) {
  const auto bundle = makeSignedBundle();
  fs::remove(bundle / "ToFolder");
  fs::create_symlink("Contents/Linux", bundle / "ToFolder");
  EXPECT_EQ(refusal(bundle), "the contents differ from the manifest: ToFolder");
}

// A link's line in the manifest, as a careless or malicious publisher would write it.
std::string linkLine(const std::string& target, const std::string& path) {
  Manifest manifest{.identifier = "a", .version = "1", .previousKey = {}, .entries = {}};
  tests::TemporaryFolder folder;
  fs::create_symlink(target, folder.path(path));
  const auto bundle = posix::Descriptor(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  manifest.entries = {{EntryKind::folder, 0755, 0, {}, "."}, BundleItem(bundle.get(), path).described()};
  const auto text = textOf(manifest);
  return text.substr(text.find("link "));
}

TEST_F(BundleVerificationTest, ALinkOutOfTheTreeIsRefusedEvenWhenItIsSigned) {
  for (const std::string target :
       {"/etc/passwd", "..", "../elsewhere", "Contents/../../App.app/Contents", "ToFolder/../../..", "/"}) {
    const auto bundle = makeSignedBundle();
    fs::create_symlink(target, bundle / "ZLink");
    const auto path = manifestOfBundle(bundle);
    tests::writeFile(path, tests::readFile(path) + linkLine(target, "ZLink"));
    publisher.sign(path);
    EXPECT_EQ(refusal(bundle), "a link leads out of the bundle: ZLink") << target;
    fs::remove_all(bundle);
  }
}

TEST_F(BundleVerificationTest, ALinkToNothingOrToItselfIsRefusedEvenWhenItIsSigned) {
  for (const std::string target : {"nothing", "ZLink", "Contents/Info.plist/x"}) {
    const auto bundle = makeSignedBundle();
    fs::create_symlink(target, bundle / "ZLink");
    const auto path = manifestOfBundle(bundle);
    tests::writeFile(path, tests::readFile(path) + linkLine(target, "ZLink"));
    publisher.sign(path);
    EXPECT_EQ(refusal(bundle), "a link leads nowhere: ZLink") << target;
    fs::remove_all(bundle);
  }
}

TEST_F(BundleVerificationTest, AWrongKeyIsRefused) {
  const auto bundle = makeSignedBundle();
  const KeyPair other(folder, "other");
  EXPECT_EQ(refusal(bundle, {other.trusted()}),
            "the bundle is signed with key " + Minisign::textOf(publisher.key().identifier) + ", which is not trusted");
  other.sign(manifestOfBundle(bundle));
  EXPECT_EQ(refusal(bundle, {other.trusted()}), "");
  EXPECT_THAT(refusal(bundle), HasSubstr("which is not trusted"));
}

TEST_F(BundleVerificationTest, AKeyThatOnlyHasTheIdentifierOfATrustedOneIsRefused) {
  const auto bundle = makeSignedBundle();
  auto trusted = KeyPair(folder, "other").trusted();
  trusted.key.identifier = publisher.key().identifier;
  EXPECT_EQ(refusal(bundle, {trusted}), "the bundle's manifest: the signature does not match");
  EXPECT_EQ(refusal(bundle, {trusted, publisher.trusted()}), "") << "the right one counts wherever it stands";
}

TEST_F(BundleVerificationTest, AKeyThatMayNotSignForTheIdentifierIsRefused) {
  const auto bundle = makeSignedBundle();
  EXPECT_EQ(refusal(bundle, {publisher.trusted({"com.example.Other"})}), "the key publisher may not sign com.example.App");
  EXPECT_EQ(refusal(bundle, {publisher.trusted({"com.example.Other", "com.example.App"})}), "");
  EXPECT_EQ(refusal(bundle, {publisher.trusted({"com.example.Other"}), publisher.trusted({"com.example.App"})}), "");
}

TEST_F(BundleVerificationTest, AChangedManifestIsRefused) {
  const auto bundle = makeSignedBundle();
  auto text = tests::readFile(manifestOfBundle(bundle));
  text.replace(text.find("2.0"), 3, "3.0");
  tests::writeFile(manifestOfBundle(bundle), text);
  EXPECT_EQ(refusal(bundle), "the bundle's manifest: the signature does not match");
}

TEST_F(BundleVerificationTest, TheSignatureIsCheckedBeforeAnythingReadsTheManifest) {
  const auto bundle = makeSignedBundle();
  tests::writeFile(manifestOfBundle(bundle), "not a manifest");
  EXPECT_EQ(refusal(bundle), "the bundle's manifest: the signature does not match");
}

TEST_F(BundleVerificationTest, AMalformedManifestIsRefusedEvenWhenItIsSigned) {
  EXPECT_THAT(refusalOfManifest([](std::string& text) { text.pop_back(); }), HasSubstr("the manifest ends early"));
}

TEST_F(BundleVerificationTest, AnEntryOnlyInTheManifestIsRefused) {
  const auto reason = refusalOfManifest([](std::string& text) { text += "folder 0755 0 - ZFolder\n"; });
  EXPECT_EQ(reason, "missing from the bundle: ZFolder");
}

TEST_F(BundleVerificationTest, ATruncatedSignatureIsRefused) {
  const auto bundle = makeSignedBundle();
  const auto path = manifestOfBundle(bundle) + ".minisig";
  const auto whole = tests::readFile(path);
  for (const std::size_t length : {std::size_t{0}, whole.size() / 4, whole.size() / 2, whole.size() - 2}) {
    tests::writeFile(path, whole.substr(0, length));
    EXPECT_NE(refusal(bundle), "") << length;
  }
  fs::remove(path);
  EXPECT_EQ(refusal(bundle), "missing from the bundle: Contents/_Signature/manifest.minisig");
}

TEST_F(BundleVerificationTest, AForgedTrustedCommentIsRefused) {
  const auto bundle = makeSignedBundle();
  publisher.sign(manifestOfBundle(bundle), "-t 'version 1'");
  const auto path = manifestOfBundle(bundle) + ".minisig";
  auto text = tests::readFile(path);
  text.replace(text.find("version 1"), 9, "version 2");
  tests::writeFile(path, text);
  EXPECT_EQ(refusal(bundle), "the bundle's manifest: the signature's trusted comment is forged");
}

TEST_F(BundleVerificationTest, TheSignatureOfAnotherBundleIsRefused) {
  const auto bundle = makeSignedBundle();
  const auto other = makeSignedBundle("Other.app", "com.example.Other");
  fs::copy_file(manifestOfBundle(other) + ".minisig", manifestOfBundle(bundle) + ".minisig",
                fs::copy_options::overwrite_existing);
  EXPECT_EQ(refusal(bundle), "the bundle's manifest: the signature does not match");
}

TEST_F(BundleVerificationTest, AManifestOrSignatureThatIsALinkIsRefused) {
  for (const char* ending : {"", ".minisig"}) {
    const auto bundle = makeSignedBundle();
    const auto path = manifestOfBundle(bundle) + ending;
    fs::rename(path, folder.path("elsewhere"));
    fs::create_symlink(folder.path("elsewhere"), path);
    EXPECT_THAT(refusal(bundle), HasSubstr("not a file: Contents/_Signature/manifest"));
    fs::remove_all(bundle);
  }
}

TEST_F(BundleVerificationTest, AManifestOrSignatureThatEverybodyCanWriteIsRefused) {
  for (const char* ending : {"", ".minisig"}) {
    const auto bundle = makeSignedBundle();
    fs::permissions(manifestOfBundle(bundle) + ending, fs::perms(0666));
    EXPECT_THAT(refusal(bundle), HasSubstr("others can write Contents/_Signature/manifest"));
    fs::remove_all(bundle);
  }
}

TEST_F(BundleVerificationTest, ASignatureFolderThatIsALinkIsRefused) {
  const auto bundle = makeSignedBundle();
  fs::rename(bundle / "Contents/_Signature", folder.path("signature"));
  fs::create_symlink(folder.path("signature"), bundle / "Contents/_Signature");
  EXPECT_NE(refusal(bundle), "");
}

TEST_F(BundleVerificationTest, ACopyOfOneFileIsComparedWithItsEntry) {
  const auto bundle = makeSignedBundle();
  const auto manifest = signedManifestOf(opened(bundle).get(), {publisher.trusted()}).manifest;
  const auto copy = folder.path("copy");
  const auto refusalOfCopy = [&](const std::string& text, const std::string& path) {
    tests::writeFile(copy, text);
    return refusalOf([&] { verifyContents(opened(copy).get(), manifest, path); });
  };
  EXPECT_EQ(refusalOfCopy("program 2.0", "Contents/Linux/Controller"), "");
  EXPECT_THAT(refusalOfCopy("program 2.1", "Contents/Linux/Controller"), HasSubstr("the contents differ"));
  EXPECT_THAT(refusalOfCopy("program 2.0+", "Contents/Linux/Controller"), HasSubstr("the contents differ"));
  EXPECT_THAT(refusalOfCopy("program 2.0", "Contents/Linux/Other"), HasSubstr("not in the manifest"));
  EXPECT_THAT(refusalOfCopy("program 2.0", "Contents/Linux"), HasSubstr("not in the manifest"));
}

}  // namespace
}  // namespace tests::tool
