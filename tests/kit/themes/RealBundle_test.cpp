// Bundle information from bundles on disk, their lists written by other programs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "kit/NSBundle+Kelto.h"
#include "kit/NSBundle+KeltoVersion.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/Bundle.h"
#include "tests/support/CommandLine.h"
#include "tests/support/TemporaryFolder.h"

using namespace NSBundle::Kelto;
using foundation::PropertyList::Value;
using testing::HasSubstr;
using tests::Outcome;

namespace {

class RealBundle : public testing::Test {
 protected:
  RealBundle() { std::filesystem::create_directories(contents); }

  std::shared_ptr<const platform::Bundle> open() { return bundles.bundleWithPath(folder.path("Kelto Controller.app")); }

  // Writes the list with python's library, XML or binary.
  void writeList(const char* form) const {
    const std::string program = R"(
import plistlib, sys
info = {"CFBundleDisplayName": "Kelto \u2014 Contr\u00f4leur", "CFBundleName": "Kelto", "KTBuildType": "Beta 3",
        "CFBundleURLTypes": [{"CFBundleURLSchemes": ["kelto", "kelto-beta"]}], "CFBundleVersion": "4.2.1234b",
        "LSApplicationQueriesSchemes": ["http", "kelto-remote"], "KTAppStoreID": 123456789}
plistlib.dump(info, open(sys.argv[1], "wb"), fmt=getattr(plistlib, sys.argv[2])))";
    tests::writeFile(folder.path("write.py"), program);
    const Outcome outcome =
        tests::runCommandLine("python3 '" + folder.path("write.py") + "' '" + list + "' " + form + " 2>&1");
    ASSERT_EQ(outcome, (Outcome{0, ""}));
  }

  void expectEverything() {
    const auto bundle = open();
    ASSERT_NE(bundle, nullptr);
    EXPECT_EQ(displayName(*bundle, fake.platform.process), "Kelto \u2014 Contr\u00f4leur");
    EXPECT_EQ(buildType(*bundle), KTBuildType::beta);
    EXPECT_EQ(interopURLScheme(*bundle, fake.platform.process), "kelto-beta://");
    EXPECT_TRUE(canQueryForScheme(*bundle, "kelto-remote"));
    EXPECT_FALSE(canQueryForScheme(*bundle, "https"));
    ASSERT_NE(appStoreID(*bundle), nullptr);
    EXPECT_EQ(*appStoreID(*bundle), Value(123456789));
    EXPECT_EQ(appVersion(*bundle), (KTAppVersion{4, 2, 1234, u'b'}));
  }

  platform::fake::FakePlatform fake;
  tests::TemporaryFolder folder;
  std::string contents = folder.path("Kelto Controller.app/Contents");
  std::string list = contents + "/Info.plist";
  platform::Linux::Bundles bundles{fake.systemLog};
};

}  // namespace

TEST_F(RealBundle, AnswersFromAnXMLList) {
  writeList("FMT_XML");
  expectEverything();
}

TEST_F(RealBundle, AnswersFromABinaryList) {
  writeList("FMT_BINARY");
  expectEverything();
}

TEST_F(RealBundle, AnswersFromAListThatPlistutilConverted) {
  if (tests::runCommandLine("command -v plistutil").status != 0) GTEST_SKIP() << "libplist-utils is not installed";
  writeList("FMT_XML");
  const std::string binary = folder.path("binary.plist");
  ASSERT_EQ(tests::runCommandLine("plistutil -i '" + list + "' -o '" + binary + "' 2>&1").status, 0);
  ASSERT_TRUE(tests::readFile(binary).starts_with("bplist00"));
  std::filesystem::copy_file(binary, list, std::filesystem::copy_options::overwrite_existing);
  expectEverything();
}

TEST_F(RealBundle, AHostileListCountsAsEmptyAndIsReported) {
  // One array that holds itself.
  const char bytes[] = "bplist00\xa1\x00\x08\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0a";
  tests::writeFile(list, std::string(bytes, sizeof bytes - 1));
  const auto bundle = open();
  EXPECT_EQ(displayName(*bundle, fake.platform.process), "Kelto Controller");
  EXPECT_EQ(buildType(*bundle), KTBuildType::release);
  ASSERT_EQ(fake.systemLog.lines.size(), 1U);
  EXPECT_THAT(fake.systemLog.lines[0], HasSubstr("deep"));
}

TEST_F(RealBundle, WithoutAListTheFileNameIsShown) {
  EXPECT_EQ(displayName(*open(), fake.platform.process), "Kelto Controller");
}
