#include "privileged/tool/BundleVersion.h"

#include <gtest/gtest.h>

#include <array>

namespace tests::tool {
namespace {

using namespace AssistantTool;

TEST(BundleVersion, NumbersAndALetterAreAVersion) {
  for (const char* text : {"0", "4", "4.2", "4.2.1234b", "1.2.3.4.5.6.7.8", "007", "999999999999999999", "1Z"})
    EXPECT_TRUE(isBundleVersion(text)) << text;
}

TEST(BundleVersion, NothingElseIsAVersion) {
  for (const char* text : {"", "a", ".", "1.", ".1", "1..2", "1a.2", "1ab", "-1", "+1", " 1", "1 ", "1.2-3",
                           "1.2.3.4.5.6.7.8.9", "1000000000000000000", "0x1", "1.\n"})
    EXPECT_FALSE(isBundleVersion(text)) << text;
}

TEST(BundleVersion, VersionsAreOrderedByTheirNumbersAndThenTheLetter) {
  constexpr std::array ascending{"0", "0.9", "1", "1.0.0a", "1.0.0b", "1.0.1", "1.9", "1.10", "2", "2.0.0.1", "10"};
  for (std::size_t i = 0; i < ascending.size(); ++i)
    for (std::size_t j = 0; j < ascending.size(); ++j)
      EXPECT_EQ(compareVersions(ascending[i], ascending[j]), i <=> j) << ascending[i] << " and " << ascending[j];
}

TEST(BundleVersion, MissingNumbersAndLeadingZerosDoNotCount) {
  EXPECT_EQ(compareVersions("4.2", "4.2.0"), std::strong_ordering::equal);
  EXPECT_EQ(compareVersions("04.2", "4.02"), std::strong_ordering::equal);
}

TEST(BundleVersion, OtherTextsAreNotCompared) {
  EXPECT_EQ(compareVersions("1", "one"), std::nullopt);
  EXPECT_EQ(compareVersions("", "1"), std::nullopt);
}

}  // namespace
}  // namespace tests::tool
