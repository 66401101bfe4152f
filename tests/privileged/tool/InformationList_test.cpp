#include "privileged/tool/InformationList.h"

#include "tests/privileged/tool/SignedBundle.h"

namespace tests::tool {
namespace {

using namespace AssistantTool;
using ::testing::HasSubstr;

std::string listOf(const std::string& contents) { return "<plist version=\"1.0\"><dict>" + contents + "</dict></plist>"; }

std::string refusal(const std::string& list) {
  return refusalOf([&] { (void)bundleInformationOf(list); });
}

TEST(InformationList, TellsIdentifierAndVersion) {
  const auto found = bundleInformationOf(informationList("com.example.App", "4.2.1b"));
  EXPECT_EQ(found.identifier, "com.example.App");
  EXPECT_EQ(found.version, "4.2.1b");
}

TEST(InformationList, ReadsPastPrologCommentsAndOtherValues) {
  const auto found = bundleInformationOf(
      "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!DOCTYPE plist PUBLIC \"a\" \"b\">\n<!-- <dict> -->\n<plist "
      "version=\"1.0\">\n" +
      std::string("<dict><key>A</key><array><string>x &amp; y</string><dict/><true/></array><!-- > -->"
                  "<key>B</key><dict><key>CFBundleVersion</key><string>9</string></dict>"
                  "<key>CFBundleVersion</key> <string>1</string><key>C</key><integer>1</integer></dict></plist>\n"));
  EXPECT_EQ(found.version, "1");
  EXPECT_EQ(found.identifier, std::nullopt);
}

TEST(InformationList, AnEmptyDictionaryTellsNothing) {
  const auto found = bundleInformationOf(listOf(""));
  EXPECT_EQ(found.identifier, std::nullopt);
  EXPECT_EQ(found.version, std::nullopt);
}

TEST(InformationList, AKeyThatComesTwiceIsRefused) {
  const std::string version = "<key>CFBundleVersion</key><string>1</string>";
  EXPECT_THAT(refusal(listOf(version + version)), HasSubstr("twice"));
}

TEST(InformationList, ReferencesThatCouldHideAKeyAreRefused) {
  EXPECT_THAT(refusal(listOf("<key>CFBundle&#86;ersion</key><string>1</string>")), HasSubstr("reference"));
  EXPECT_THAT(refusal(listOf("<key>CFBundleVersion</key><string>&#49;</string>")), HasSubstr("reference"));
  EXPECT_THAT(refusal("<!DOCTYPE plist [<!ENTITY a \"b\">]>" + listOf("")), HasSubstr("entities"));
  EXPECT_THAT(refusal(listOf("<key>A</key><string><![CDATA[</string>]]></string>")), HasSubstr("unknown element"));
}

TEST(InformationList, ValuesOfOtherKindsAreRefused) {
  EXPECT_THAT(refusal(listOf("<key>CFBundleVersion</key><integer>1</integer>")), HasSubstr("not a string"));
  EXPECT_THAT(refusal(listOf("<key>CFBundleVersion</key><string>1<b/></string>")), HasSubstr("element inside"));
}

TEST(InformationList, MalformedListsAreRefused) {
  const std::string whole = listOf("<key>CFBundleVersion</key><string>1</string><key>A</key><array><dict/></array>");
  ASSERT_EQ(refusal(whole), "");
  for (std::size_t length = 0; length < whole.size(); ++length) EXPECT_NE(refusal(whole.substr(0, length)), "") << length;
  for (const char* text :
       {"bplist00", "<plist><array/></plist>", "<plist><dict>text</dict></plist>", "<plist><dict><string/></dict></plist>",
        "<plist><dict><key>A</key></dict></plist>", "<plist><dict><key>A</key><array></dict></array></plist>",
        "<plist><dict/></plist>", "<plist><dict a=\"b\"></dict></plist>", "<plist><dict></dict><dict></dict></plist>"})
    EXPECT_NE(refusal(text), "") << text;
}

TEST(InformationList, ADeepListIsReadWithoutRecursion) {
  constexpr int depth = 60'000;
  std::string list = "<key>A</key>";
  for (int i = 0; i < depth; ++i) list += "<array>";
  for (int i = 0; i < depth; ++i) list += "</array>";
  EXPECT_EQ(refusal(listOf(list)), "");
}

TEST(InformationList, ALongListIsRefused) {
  EXPECT_THAT(refusal(listOf(std::string(maximumInformationListBytes, ' '))), HasSubstr("too long"));
}

}  // namespace
}  // namespace tests::tool
