#include "privileged/tool/Manifest.h"

#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {
namespace {

using namespace AssistantTool;
using ::testing::HasSubstr;

const std::string header = "kelto-manifest 1\nidentifier com.example.App\nversion 2.0\n";
const std::string root = "folder 0755 0 - .\n";
const std::string digest(64, 'a');

std::string file(const std::string& path) { return "file 0644 3 " + digest + " " + path + "\n"; }
std::string folder(const std::string& path) { return "folder 0755 0 - " + path + "\n"; }

std::string refusal(const std::string& text) {
  return refusalOf([&] { (void)manifestOf(text); });
}
std::string refusalOfEntries(const std::string& entries) { return refusal(header + root + entries); }

TEST(Manifest, TellsEverythingThatItsLinesSay) {
  const auto manifest = manifestOf(header + root + file("a") + folder("b") + "link 0777 1 " + digest + " b/c\n");
  EXPECT_EQ(manifest.identifier, "com.example.App");
  EXPECT_EQ(manifest.version, "2.0");
  EXPECT_EQ(manifest.previousKey, std::nullopt);
  ASSERT_EQ(manifest.entries.size(), 4U);
  Digest all{};
  all.fill(0xAA);
  EXPECT_EQ(*manifest.find("."), (ManifestEntry{EntryKind::folder, 0755, 0, {}, "."}));
  EXPECT_EQ(*manifest.find("a"), (ManifestEntry{EntryKind::file, 0644, 3, all, "a"}));
  EXPECT_EQ(*manifest.find("b"), (ManifestEntry{EntryKind::folder, 0755, 0, {}, "b"}));
  EXPECT_EQ(*manifest.find("b/c"), (ManifestEntry{EntryKind::link, 0777, 1, all, "b/c"}));
  for (const char* other : {"", "A", "aa", "b/", "b/c/d"}) EXPECT_EQ(manifest.find(other), nullptr) << other;
}

TEST(Manifest, WrittenAgainIsTheSame) {
  const auto odd =
      header + root + file(" %01%0A %25%7F%FF~") + file("-") + folder("a") + file("a-") + file("a/b") + file("aa");
  EXPECT_EQ(textOf(manifestOf(odd)), odd);
  EXPECT_EQ(manifestOf(odd).entries[1].path, " \x01\n %\x7F\xFF~");
}

TEST(Manifest, NamesThePreviousKey) {
  const std::string key = "RWQR57cWG5Tu+bq2QPGwtefFPgqbbmZUQgPnl69w4IOOPvIZNntQYgf6";
  const auto text = header + "previous-key " + key + "\n" + root;
  const auto manifest = manifestOf(text);
  EXPECT_EQ(Minisign::textOf(manifest.previousKey.value()), key);
  EXPECT_EQ(textOf(manifest), text);
  EXPECT_THAT(refusal(header + "previous-key " + key.substr(4) + "\n" + root), HasSubstr("line 4: not the Base64"));
}

TEST(Manifest, EveryBeginningOfItIsRefusedUnlessItEndsWithAnEntry) {
  const auto whole = header + root + folder("a") + file("a/b");
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const bool endsWithEntry = length > header.size() && whole[length - 1] == '\n';
    EXPECT_EQ(refusal(whole.substr(0, length)).empty(), endsWithEntry) << length;
  }
}

TEST(Manifest, AnotherHeaderIsRefused) {
  EXPECT_THAT(refusal("kelto-manifest 2\n"), HasSubstr("line 1: not a manifest of this format"));
  EXPECT_THAT(refusal("kelto-manifest 1\nversion 1\n"), HasSubstr("line 2: no \"identifier\""));
  EXPECT_THAT(refusal("kelto-manifest 1\nidentifier a/b\n"), HasSubstr("line 2: not a bundle identifier"));
  EXPECT_THAT(refusal("kelto-manifest 1\nidentifier \n"), HasSubstr("line 2: not a bundle identifier"));
  EXPECT_THAT(refusal("kelto-manifest 1\nidentifier a\nversion one\n"), HasSubstr("line 3: not a version"));
  EXPECT_THAT(refusal(header), HasSubstr("line 4: the manifest ends early"));
}

TEST(Manifest, TheBundleItselfComesFirstAndIsAFolder) {
  EXPECT_THAT(refusal(header + folder("a")), HasSubstr("the bundle itself is missing"));
  EXPECT_THAT(refusal(header + file(".")), HasSubstr("the bundle itself is not a folder"));
  EXPECT_THAT(refusalOfEntries(folder(".")), HasSubstr("comes twice"));
}

TEST(Manifest, PathsThatLeaveTheBundleOrHaveASecondFormAreRefused) {
  for (const char* path : {"", "/a", "a/", "..", "../a", "a/..", "a/../b", "a/.", "a/./b", "./a", "a//b", "a%00"}) {
    EXPECT_THAT(refusalOfEntries(folder("a") + file(path)), HasSubstr("a path is not valid")) << path;
  }
  EXPECT_THAT(refusalOfEntries(file(std::string(256, 'a'))), HasSubstr("a path is not valid"));
  EXPECT_EQ(refusalOfEntries(file(std::string(255, 'a'))), "");
}

TEST(Manifest, EscapesAreTakenInTheirOneFormOnly) {
  for (const char* path : {"%", "%4", "%4G", "%ff", "%61", "%20", "\xFF", "\x01", "\t", "a\r"})
    EXPECT_NE(refusalOfEntries(file(path)), "") << path;
}

TEST(Manifest, EntriesAreSortedAndComeOnce) {
  EXPECT_THAT(refusalOfEntries(file("b") + file("a")), HasSubstr("line 6: the entries are not sorted"));
  EXPECT_THAT(refusalOfEntries(file("a") + file("a")), HasSubstr("comes twice"));
  EXPECT_EQ(refusalOfEntries(file("a") + file("b%FF")), "");
  EXPECT_NE(refusalOfEntries(file("b%FF") + file("a")), "");
}

TEST(Manifest, AnEntrysFolderIsListedAsAFolder) {
  EXPECT_THAT(refusalOfEntries(file("a/b")), HasSubstr("an entry's folder is not listed"));
  EXPECT_THAT(refusalOfEntries(file("a") + file("a/b")), HasSubstr("an entry's folder is not listed"));
}

TEST(Manifest, ItselfAndItsSignatureAreNotListed) {
  const auto folders = folder("Contents") + folder("Contents/_Signature");
  EXPECT_THAT(refusalOfEntries(folders + file("Contents/_Signature/manifest")), HasSubstr("is listed"));
  EXPECT_THAT(refusalOfEntries(folders + file("Contents/_Signature/manifest.minisig")), HasSubstr("is listed"));
  EXPECT_EQ(refusalOfEntries(folders + file("Contents/_Signature/other")), "");
}

TEST(Manifest, ModesThatWouldNotSurviveAreRefused) {
  for (const char* mode : {"0664", "0646", "4755", "2755", "1755"})
    EXPECT_THAT(refusalOfEntries("file " + std::string(mode) + " 3 " + digest + " a\n"),
                HasSubstr("can write, or a special bit"));
  EXPECT_THAT(refusalOfEntries("folder 0775 0 - a\n"), HasSubstr("can write, or a special bit"));
  EXPECT_THAT(refusalOfEntries("link 0755 3 " + digest + " a\n"), HasSubstr("a link's mode is not 0777"));
}

TEST(Manifest, NumbersAndDigestsAreTakenInTheirOneFormOnly) {
  for (const std::string& line :
       {"file 644 3 " + digest, "file 00644 3 " + digest, "file 0648 3 " + digest, "file 0644 03 " + digest,
        "file 0644 +3 " + digest, "file 0644 -3 " + digest, "file 0644  " + digest,
        "file 0644 9223372036854775808 " + digest, "file 0644 3 " + digest.substr(1), "file 0644 3 " + digest + "a",
        "file 0644 3 " + std::string(64, 'A'), std::string("file 0644 3 -"), "folder 0755 0 " + digest,
        std::string("folder 0755 1 -"), "pipe 0644 3 " + digest, "file  0644 3 " + digest})
    EXPECT_NE(refusalOfEntries(line + " a\n"), "") << line;
  EXPECT_EQ(refusalOfEntries("file 0644 9223372036854775807 " + digest + " a\n"), "");
}

TEST(Manifest, MoreEntriesThanTheLimitAreRefused) {
  std::string text = header + root;
  const auto count = maximumManifestEntries;
  for (std::size_t i = 1; i <= count; ++i) text += file(std::to_string(1'000'000 + i));
  EXPECT_THAT(refusal(text), HasSubstr("too many entries"));
  EXPECT_THAT(refusal(std::string(maximumManifestBytes + 1, 'a')), HasSubstr("too long"));
}

TEST(Manifest, AnyPrintedPathIsOneLineOfAscii) { EXPECT_EQ(printable("a b/\xC3\xBC%\n"), "a b/%C3%BC%25%0A"); }

}  // namespace
}  // namespace tests::tool
