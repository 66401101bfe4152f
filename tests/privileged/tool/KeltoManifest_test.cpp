// The program that publishers run before they sign.
#include "privileged/tool/Manifest.h"
#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {
namespace {

using namespace AssistantTool;
using ::testing::HasSubstr;

class KeltoManifestTest : public SignedBundleTest {
 protected:
  // The program's message if it refuses, or nothing.
  std::string refusal(const fs::path& bundle, const std::string& options = {}) {
    return writeManifest(bundle, options) ? "" : tests::readFile(printed);
  }
  static Manifest read(const fs::path& bundle) { return manifestOf(tests::readFile(manifestOfBundle(bundle))); }
};

TEST_F(KeltoManifestTest, ListsEveryEntryOnce) {
  const auto bundle = makeBundle();
  ASSERT_EQ(refusal(bundle), "");
  const auto manifest = read(bundle);
  std::size_t count = 1;
  for (const auto& entry : fs::recursive_directory_iterator(bundle)) {
    const auto path = fs::path(entry.path()).lexically_relative(bundle).string();
    if (path == manifestPath) continue;
    ++count;
    EXPECT_NE(manifest.find(path), nullptr) << path;
  }
  EXPECT_EQ(manifest.entries.size(), count);
  EXPECT_EQ(manifest.find("Contents/Linux/Controller")->mode, 0755U);
  EXPECT_EQ(manifest.find("Contents/Linux/Controller")->size, 11U);
}

TEST_F(KeltoManifestTest, DigestsAreThoseOfTheSystemsOwnProgram) {
  const auto bundle = makeBundle();
  ASSERT_EQ(refusal(bundle), "");
  const auto sum = folder.path("sum");
  ASSERT_TRUE(runs("sha256sum " + shellWord(bundle / "Contents/Info.plist"), sum));
  EXPECT_THAT(tests::readFile(manifestOfBundle(bundle)),
              HasSubstr(tests::readFile(sum).substr(0, 64) + " Contents/Info.plist\n"));
}

TEST_F(KeltoManifestTest, TakesIdentifierAndVersionFromTheBundleOrTheCommandLine) {
  const auto bundle = makeBundle();
  ASSERT_EQ(refusal(bundle), "");
  EXPECT_EQ(read(bundle).identifier, "com.example.App");
  EXPECT_EQ(read(bundle).version, "2.0");
  ASSERT_EQ(refusal(bundle, "--identifier com.example.Other --version 3.1b"), "");
  EXPECT_EQ(read(bundle).identifier, "com.example.Other");
  EXPECT_EQ(read(bundle).version, "3.1b");
  writeWithMode(bundle / "Contents/Info.plist", "bplist00");
  EXPECT_THAT(refusal(bundle), HasSubstr("cannot read the property list"));
  EXPECT_EQ(refusal(bundle, "--identifier com.example.Other --version 3.1b"), "");
}

TEST_F(KeltoManifestTest, WritesNothingWhereALinkLeads) {
  const auto bundle = makeBundle();
  const auto elsewhere = bundle.parent_path() / "elsewhere";
  fs::create_directory(elsewhere);
  fs::create_directory_symlink(elsewhere, bundle / "Contents/_Signature");
  EXPECT_NE(refusal(bundle), "");
  EXPECT_TRUE(fs::is_empty(elsewhere));
}

TEST_F(KeltoManifestTest, TheManifestDoesNotDependOnTheUmaskOrOnAnEarlierOne) {
  const auto bundle = makeBundle();
  ::umask(077);
  ASSERT_EQ(refusal(bundle), "");
  const auto first = tests::readFile(manifestOfBundle(bundle));
  publisher.sign(manifestOfBundle(bundle));
  ASSERT_EQ(refusal(bundle), "");
  EXPECT_EQ(tests::readFile(manifestOfBundle(bundle)), first);
  EXPECT_FALSE(fs::exists(manifestOfBundle(bundle) + ".minisig")) << "the signature of the earlier one";
  EXPECT_EQ(read(bundle).find(signatureFolderPath)->mode, 0755U);
}

TEST_F(KeltoManifestTest, RefusesEverythingThatTheToolWouldRefuse) {
  const auto bundle = makeBundle();
  const auto program = bundle / "Contents/Linux/Controller";
  fs::permissions(program, fs::perms(0775));
  EXPECT_THAT(refusal(bundle), HasSubstr("others can write Contents/Linux/Controller"));
  fs::permissions(program, fs::perms(04755));
  EXPECT_THAT(refusal(bundle), HasSubstr("a special bit is set in the mode of Contents/Linux/Controller"));
  fs::permissions(program, fs::perms(0755));
  fs::create_symlink("/etc", bundle / "link");
  EXPECT_THAT(refusal(bundle), HasSubstr("a link leads out of the bundle: link"));
  fs::remove(bundle / "link");
  ASSERT_EQ(::mkfifo((bundle / "pipe").c_str(), 0644), 0);
  EXPECT_THAT(refusal(bundle), HasSubstr("a device, socket or pipe is in the bundle: pipe"));
  fs::remove(bundle / "pipe");
  EXPECT_THAT(refusal(bundle, "--version one"), HasSubstr("not a version of a bundle: one"));
  EXPECT_THAT(refusal(bundle, "--identifier a/b"), HasSubstr("not a bundle identifier: a/b"));
  EXPECT_THAT(refusal(bundle, "--previous-key a"), HasSubstr("Base64"));
  EXPECT_FALSE(fs::exists(manifestOfBundle(bundle)));
}

TEST_F(KeltoManifestTest, MalformedCommandLinesAreRefused) {
  const auto bundle = makeBundle();
  EXPECT_THAT(refusal(bundle, "--version"), HasSubstr("--version needs a value"));
  EXPECT_THAT(refusal(bundle, "other"), HasSubstr("unexpected argument: other"));
  EXPECT_THAT(refusal(bundle, "--other"), HasSubstr("unexpected argument: --other"));
  EXPECT_THAT(refusal(folder.path("nothing")), HasSubstr("cannot open"));
  EXPECT_FALSE(fs::exists(bundle / "Contents/_Signature"));
}

TEST_F(KeltoManifestTest, TellsHowItIsUsed) {
  ASSERT_TRUE(runs(std::string(KELTO_BIN_DIR) + "/kelto-manifest --help", printed));
  EXPECT_THAT(tests::readFile(printed), HasSubstr("Usage: kelto-manifest BUNDLE"));
}

}  // namespace
}  // namespace tests::tool
