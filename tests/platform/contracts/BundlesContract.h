#pragma once
// The contract of Bundles and Bundle.
//
// A World has: `bundles()`, and `path()` of a bundle with this content: the identifier "com.kelto.test", the name "Test",
// the number 7 as "Number", the resources "thing.txt" and "tool", and "hello" as "Hello" in the default table and as
// "Other" in the table "More". It is localised in English.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Bundle.h"

namespace tests::contracts {

template <class World>
class BundlesContract : public testing::Test {
 protected:
  std::shared_ptr<const platform::Bundle> open() { return world.bundles().bundleWithPath(world.path()); }
  World world;
};

TYPED_TEST_SUITE_P(BundlesContract);

TYPED_TEST_P(BundlesContract, ABundleKnowsItsPathAndItsInformation) {
  const auto bundle = this->open();
  ASSERT_TRUE(bundle);
  EXPECT_EQ(bundle->bundlePath(), this->world.path());
  EXPECT_EQ(bundle->bundleIdentifier(), "com.kelto.test");
  EXPECT_EQ(bundle->infoString("CFBundleName"), "Test");
}

TYPED_TEST_P(BundlesContract, AnInformationValueOfAnotherKindIsNotText) {
  const auto bundle = this->open();
  EXPECT_EQ(bundle->infoString("Number"), std::nullopt);
  EXPECT_EQ(bundle->infoString("Missing"), std::nullopt);
  EXPECT_EQ(bundle->infoDictionary().size(), 3U);
}

TYPED_TEST_P(BundlesContract, AMissingFolderIsNotABundle) {
  EXPECT_EQ(this->world.bundles().bundleWithPath(this->world.path() + "/missing"), nullptr);
  EXPECT_EQ(this->world.bundles().bundleWithPath(""), nullptr);
}

TYPED_TEST_P(BundlesContract, AResourceIsFoundByItsNameWithOrWithoutType) {
  const auto bundle = this->open();
  EXPECT_THAT(bundle->pathForResource("thing", "txt").value_or(""), testing::EndsWith("/thing.txt"));
  EXPECT_EQ(bundle->pathForResource("thing.txt", ""), bundle->pathForResource("thing", "txt"));
  EXPECT_THAT(bundle->pathForResource("tool", "").value_or(""), testing::EndsWith("/tool"));
  EXPECT_EQ(bundle->pathForResource("tool", "txt"), std::nullopt);
  EXPECT_EQ(bundle->pathForResource("", ""), std::nullopt);
}

TYPED_TEST_P(BundlesContract, ATextComesFromTheTableAskedFor) {
  const auto bundle = this->open();
  EXPECT_EQ(bundle->localizedStringForKey("hello", "", ""), "Hello");
  EXPECT_EQ(bundle->localizedStringForKey("hello", "", "Localizable"), "Hello");
  EXPECT_EQ(bundle->localizedStringForKey("hello", "", "More"), "Other");
}

TYPED_TEST_P(BundlesContract, AMissingTextIsTheGivenValueOrElseItsKey) {
  const auto bundle = this->open();
  EXPECT_EQ(bundle->localizedStringForKey("bye", "Value", ""), "Value");
  EXPECT_EQ(bundle->localizedStringForKey("bye", "", ""), "bye");
  EXPECT_EQ(bundle->localizedStringForKey("hello", "", "Missing"), "hello");
}

TYPED_TEST_P(BundlesContract, TheLocalizationsThatSuitTheUserAreNamed) {
  EXPECT_THAT(this->open()->preferredLocalizations(), testing::ElementsAre("en"));
}

TYPED_TEST_P(BundlesContract, TheMainBundleStaysTheSame) {
  EXPECT_EQ(&this->world.bundles().mainBundle(), &this->world.bundles().mainBundle());
  EXPECT_THAT(this->world.bundles().mainBundle().bundlePath(), testing::StartsWith("/"));
}

REGISTER_TYPED_TEST_SUITE_P(BundlesContract, ABundleKnowsItsPathAndItsInformation, AnInformationValueOfAnotherKindIsNotText,
                            AMissingFolderIsNotABundle, AResourceIsFoundByItsNameWithOrWithoutType,
                            ATextComesFromTheTableAskedFor, AMissingTextIsTheGivenValueOrElseItsKey,
                            TheLocalizationsThatSuitTheUserAreNamed, TheMainBundleStaysTheSame);

}  // namespace tests::contracts
