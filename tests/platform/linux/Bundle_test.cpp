#include "platform/linux/Bundle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include "platform/fake/FakePlatform.h"
#include "tests/support/CommandLine.h"
#include "tests/support/TemporaryFolder.h"

using platform::Linux::bundlePathForExecutable;
using platform::Linux::Bundles;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string information =
    "<plist><dict><key>CFBundleIdentifier</key><string>com.kelto.test</string>"
    "<key>CFBundleDevelopmentRegion</key><string>en</string></dict></plist>";

class BundleTest : public testing::Test {
 protected:
  // Writes a document of the bundle, and the folders above it.
  void write(const std::string& name, const std::string& contents) {
    const std::filesystem::path path = folder.path("Test.app/Contents/" + name);
    std::filesystem::create_directories(path.parent_path());
    tests::writeFile(path, contents);
  }

  [[nodiscard]] std::shared_ptr<const platform::Bundle> open() const { return bundles.bundleWithPath(path); }

  tests::TemporaryFolder folder;
  std::string path = folder.path("Test.app");
  std::vector<std::string> languages{"de-AT"};
  platform::fake::FakeSystemLog log;
  platform::Linux::Bundles bundles{log, [this] { return languages; }};
};

}  // namespace

TEST_F(BundleTest, TheInformationIsReadFromTheBundle) {
  write("Info.plist", information);
  const auto bundle = open();
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->bundlePath(), path);
  EXPECT_EQ(bundle->bundleIdentifier(), "com.kelto.test");
  EXPECT_EQ(bundle->infoString("CFBundleName"), std::nullopt);
}

TEST_F(BundleTest, WhereNoFolderIsThereIsNoBundle) {
  tests::writeFile(folder.path("file"), "");
  EXPECT_EQ(bundles.bundleWithPath(folder.path("nothing")), nullptr);
  EXPECT_EQ(bundles.bundleWithPath(folder.path("file")), nullptr);
  EXPECT_EQ(bundles.bundleWithPath(""), nullptr);
}

TEST_F(BundleTest, APlainFolderIsABundleWithoutInformation) {
  tests::writeFile(folder.path("thing.txt"), "");
  const auto bundle = bundles.bundleWithPath(folder.path());
  ASSERT_TRUE(bundle);
  EXPECT_THAT(bundle->infoDictionary(), IsEmpty());
  EXPECT_EQ(bundle->pathForResource("thing", "txt"), folder.path("thing.txt"));
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(BundleTest, AnInformationListThatCannotBeReadIsReportedWithTheReason) {
  write("Info.plist", "<plist>\n<dict><key>a</key></dict></plist>");
  EXPECT_THAT(open()->infoDictionary(), IsEmpty());
  EXPECT_THAT(log.lines, ElementsAre("NSBundle: cannot read '" + path +
                                     "/Contents/Info.plist': line 2: </dict> stands where a value should begin"));
}

TEST_F(BundleTest, AnInformationListOfAnotherShapeIsReported) {
  write("Info.plist", "<plist><array/></plist>");
  EXPECT_THAT(open()->infoDictionary(), IsEmpty());
  EXPECT_THAT(log.lines, ElementsAre(testing::EndsWith("Info.plist': it is not a dictionary")));
}

TEST_F(BundleTest, AMissingInformationListIsReported) {
  write("Resources/a.txt", "");
  EXPECT_THAT(open()->infoDictionary(), IsEmpty());
  EXPECT_THAT(log.lines, ElementsAre(testing::EndsWith("Info.plist': No such file or directory")));
}

TEST_F(BundleTest, APipeInPlaceOfTheInformationListDoesNotStopTheReader) {
  std::filesystem::create_directories(path + "/Contents");
  ASSERT_EQ(::mkfifo((path + "/Contents/Info.plist").c_str(), 0600), 0);
  EXPECT_THAT(open()->infoDictionary(), IsEmpty());
  EXPECT_THAT(log.lines, ElementsAre(testing::EndsWith("Info.plist': it is not a regular file")));
}

TEST_F(BundleTest, AReplacedBundleIsReadAfresh) {
  write("Info.plist", information);
  const auto before = open();
  write("Info.plist", "<plist><dict><key>CFBundleIdentifier</key><string>com.kelto.other</string></dict></plist>");
  EXPECT_EQ(open()->bundleIdentifier(), "com.kelto.other");
  EXPECT_EQ(before->bundleIdentifier(), "com.kelto.test");
}

TEST_F(BundleTest, AResourceIsFoundInTheBestLocalizationThenInBaseThenOutside) {
  write("Info.plist", information);
  write("Resources/a.txt", "");
  write("Resources/de.lproj/other.txt", "");
  const auto resources = path + "/Contents/Resources";
  EXPECT_EQ(open()->pathForResource("a", "txt"), resources + "/a.txt");
  write("Resources/Base.lproj/a.txt", "");
  EXPECT_EQ(open()->pathForResource("a", "txt"), resources + "/Base.lproj/a.txt");
  write("Resources/en.lproj/a.txt", "");
  EXPECT_EQ(open()->pathForResource("a", "txt"), resources + "/en.lproj/a.txt");
  write("Resources/de.lproj/a.txt", "");
  EXPECT_EQ(open()->pathForResource("a", "txt"), resources + "/de.lproj/a.txt");
  EXPECT_EQ(open()->pathForResource("a.txt", ""), resources + "/de.lproj/a.txt");
}

TEST_F(BundleTest, AMissingResourceHasNoPath) {
  write("Info.plist", information);
  EXPECT_EQ(open()->pathForResource("a", "txt"), std::nullopt);
  EXPECT_EQ(open()->pathForResource("", ""), std::nullopt);
}

TEST_F(BundleTest, ATextIsTakenFromTheBestLocalizationThatHasIt) {
  write("Info.plist", information);
  write("Resources/de.lproj/Localizable.strings", "\"<OK>\" = \"Gut\";");
  write("Resources/en.lproj/Localizable.strings", "\"<OK>\" = \"OK\"; \"<Done>\" = \"Done\";");
  write("Resources/Base.lproj/Localizable.strings", "\"<Next>\" = \"Base\";");
  write("Resources/Localizable.strings", "\"<Last>\" = \"Outside\";");
  const auto bundle = open();
  EXPECT_EQ(bundle->localizedStringForKey("<OK>", "", ""), "Gut");
  EXPECT_EQ(bundle->localizedStringForKey("<Done>", "", ""), "Done");
  EXPECT_EQ(bundle->localizedStringForKey("<Next>", "", ""), "Base");
  EXPECT_EQ(bundle->localizedStringForKey("<Last>", "", ""), "Outside");
  EXPECT_THAT(bundle->preferredLocalizations(), ElementsAre("de", "en"));
}

TEST_F(BundleTest, AMissingTextIsTheGivenValueOrTheKey) {
  write("Info.plist", information);
  EXPECT_EQ(open()->localizedStringForKey("<No>", "", ""), "<No>");
  EXPECT_EQ(open()->localizedStringForKey("<No>", "value", ""), "value");
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(BundleTest, OtherTablesAreNamed) {
  write("Info.plist", information);
  write("Resources/de.lproj/Other.strings", "k = anders;");
  EXPECT_EQ(open()->localizedStringForKey("k", "", "Other"), "anders");
  EXPECT_EQ(open()->localizedStringForKey("k", "", ""), "k");
}

TEST_F(BundleTest, ATableStaysAsItWasFirstReadThoughTheBundleGoes) {
  write("Info.plist", information);
  write("Resources/de.lproj/Localizable.strings", "k = eins;");
  const auto bundle = open();
  EXPECT_EQ(bundle->localizedStringForKey("k", "", ""), "eins");
  std::filesystem::rename(path, folder.path("Moved.app"));
  EXPECT_EQ(bundle->localizedStringForKey("k", "", ""), "eins");
}

TEST_F(BundleTest, ABrokenTableIsReportedOnceAndTheNextIsUsed) {
  write("Info.plist", information);
  write("Resources/de.lproj/Localizable.strings", "k = eins;\nj = zwei");
  write("Resources/en.lproj/Localizable.strings", "k = one;");
  const auto bundle = open();
  EXPECT_EQ(bundle->localizedStringForKey("k", "", ""), "one");
  EXPECT_EQ(bundle->localizedStringForKey("j", "", ""), "j");
  EXPECT_THAT(log.lines, ElementsAre("NSBundle: cannot read '" + path +
                                     "/Contents/Resources/de.lproj/Localizable.strings': line 2: a semicolon is missing"));
}

TEST_F(BundleTest, TheDevelopmentRegionIsThatOfTheInformation) {
  write("Info.plist", "<plist><dict><key>CFBundleDevelopmentRegion</key><string>sv</string></dict></plist>");
  for (const char* name : {"en", "sv", "ja"}) write("Resources/" + std::string(name) + ".lproj/Localizable.strings", "");
  languages = {"ko"};
  EXPECT_THAT(open()->preferredLocalizations(), ElementsAre("sv"));
}

TEST_F(BundleTest, LookUpsFromManyThreadsAgree) {
  write("Info.plist", information);
  write("Resources/de.lproj/Localizable.strings", "k = eins;");
  const auto bundle = open();
  std::vector<std::string> texts(8);
  {
    std::vector<std::jthread> threads;
    for (auto& text : texts) threads.emplace_back([&] { text = bundle->localizedStringForKey("k", "", ""); });
  }
  EXPECT_THAT(texts, testing::Each("eins"));
}

TEST_F(BundleTest, TheBundleOfAnExecutableIsTheInnermostAboveIt) {
  write("Info.plist", information);
  write("Resources/Inner.app/Contents/Info.plist", information);
  EXPECT_EQ(bundlePathForExecutable(path + "/Contents/Linux/test"), path);
  EXPECT_EQ(bundlePathForExecutable(path + "/Contents/Resources/Inner.app/Contents/Linux/x"),
            path + "/Contents/Resources/Inner.app");
  EXPECT_EQ(bundlePathForExecutable(folder.path("bin/tool")), folder.path("bin"));
}

TEST_F(BundleTest, AProgramFindsItsOwnBundleAndTextsWhereverItLies) {
  write("Info.plist", information);
  write("Resources/de.lproj/Localizable.strings", "\"<Cancel>\" = \"Abbrechen\";");
  write("Resources/en.lproj/Localizable.strings", "\"<Cancel>\" = \"Cancel\";");
  std::filesystem::create_directories(path + "/Contents/Linux");
  std::filesystem::copy_file(KELTO_BIN_DIR "/bundle_probe", path + "/Contents/Linux/probe");
  const std::string probe = "env -u LC_ALL -u LC_MESSAGES -u LANG -u LANGUAGE XDG_CONFIG_HOME=" + folder.path("config");
  const std::string program = " " + path + "/Contents/Linux/probe";
  EXPECT_EQ(tests::runCommandLine(probe + " LANGUAGE=de" + program).output, path + "\ncom.kelto.test\nde en\nAbbrechen\n");
  EXPECT_EQ(tests::runCommandLine(probe + " LANG=C LANGUAGE=de" + program).output,
            path + "\ncom.kelto.test\nde en\nAbbrechen\n");
  EXPECT_EQ(tests::runCommandLine(probe + " LANG=C" + program + " -AppleLanguages '(de)'").output,
            path + "\ncom.kelto.test\nde en\nAbbrechen\n");
}
