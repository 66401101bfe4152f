#include "kit/NSBundle+Kelto.h"

#include <gtest/gtest.h>

#include "platform/fake/FakePlatform.h"

using namespace NSBundle::Kelto;
using foundation::PropertyList::Array;
using foundation::PropertyList::Dictionary;
using foundation::PropertyList::Value;

namespace {

class BundleInformation : public testing::Test {
 protected:
  void set(const char* key, Value value) { info().insert_or_assign(key, std::move(value)); }
  void setSchemes(Array schemes) { set("CFBundleURLTypes", Array{Dictionary{{"CFBundleURLSchemes", std::move(schemes)}}}); }
  Dictionary& info() { return bundle.info; }

  platform::fake::FakePlatform fake;
  platform::fake::FakeBundle& bundle = fake.bundles.main;
};

}  // namespace

TEST_F(BundleInformation, TheDisplayNameComesFirst) {
  set("CFBundleDisplayName", "Shown");
  set("CFBundleName", "Named");
  EXPECT_EQ(displayName(bundle, fake.platform.process), "Shown");
}

TEST_F(BundleInformation, AnEmptyDisplayNameYieldsToTheName) {
  set("CFBundleDisplayName", "");
  set("CFBundleName", "Named");
  EXPECT_EQ(displayName(bundle, fake.platform.process), "Named");
}

TEST_F(BundleInformation, WithoutNamesTheFileNameWithoutExtensionIsShown) {
  set("CFBundleName", "");
  bundle.path = "/Apps/Kelto Controller.app";
  EXPECT_EQ(displayName(bundle, fake.platform.process), "Kelto Controller");
}

TEST_F(BundleInformation, ADisplayNameThatIsNotTextIsPassedOver) {
  set("CFBundleDisplayName", 7);
  set("CFBundleName", "Named");
  EXPECT_EQ(displayName(bundle, fake.platform.process), "Named");
}

TEST_F(BundleInformation, TheFirstDisplayNameIsThatOfTheProcess) {
  set("CFBundleName", "First");
  EXPECT_EQ(displayName(bundle, fake.platform.process), "First");
  platform::fake::FakeBundle other;
  other.info.insert_or_assign("CFBundleName", "Second");
  EXPECT_EQ(displayName(other, fake.platform.process), "First");
  set("CFBundleName", "Third");
  EXPECT_EQ(displayName(bundle, fake.platform.process), "First");
}

TEST(BundleInformationAfresh, AnotherPlatformStartsWithEmptySlots) {
  for (const char* name : {"First", "Second"}) {
    platform::fake::FakePlatform fake;
    fake.bundles.main.info.insert_or_assign("CFBundleName", name);
    fake.bundles.main.info.insert_or_assign("KTBuildType", "beta");
    fake.bundles.main.info.insert_or_assign("CFBundleURLTypes",
                                            Array{Dictionary{{"CFBundleURLSchemes", Array{std::string("kelto-") + name}}}});
    EXPECT_EQ(displayName(fake.bundles.main, fake.platform.process), name);
    EXPECT_EQ(interopURLScheme(fake.bundles.main, fake.platform.process), std::string("kelto-") + name + "://");
  }
}

TEST_F(BundleInformation, BetaIsTriedBeforeDev) {
  set("KTBuildType", "Beta-Development");
  EXPECT_EQ(buildType(bundle), KTBuildType::beta);
  EXPECT_EQ(static_cast<int>(buildType(bundle)), 2);
}

TEST_F(BundleInformation, AlphaIsTriedFirst) {
  set("KTBuildType", "devBETAalPHA");
  EXPECT_EQ(buildType(bundle), KTBuildType::alpha);
}

TEST_F(BundleInformation, AMissingAnEmptyAndAnUnknownBuildTypeAreReleases) {
  EXPECT_EQ(buildType(bundle), KTBuildType::release);
  set("KTBuildType", "");
  EXPECT_EQ(buildType(bundle), KTBuildType::release);
  set("KTBuildType", "Shipping");
  EXPECT_EQ(buildType(bundle), KTBuildType::release);
}

TEST_F(BundleInformation, EveryBuildTypeHasItsName) {
  EXPECT_EQ(buildTypeName(bundle), "RELEASE");
  set("KTBuildType", "alpha");
  EXPECT_EQ(buildTypeName(bundle), "ALPHA");
  set("KTBuildType", "beta");
  EXPECT_EQ(buildTypeName(bundle), "BETA");
  set("KTBuildType", "developer");
  EXPECT_EQ(buildTypeName(bundle), "DEVELOPMENT");
  EXPECT_EQ(static_cast<int>(buildType(bundle)), 3);
}

TEST_F(BundleInformation, AReleaseTakesThePlainScheme) {
  setSchemes({"kelto-beta", "kelto"});
  EXPECT_EQ(interopURLScheme(bundle, fake.platform.process), "kelto://");
}

TEST_F(BundleInformation, ABetaTakesTheFirstSchemeWithThePrefix) {
  set("KTBuildType", "beta");
  setSchemes({"other", "kelto", "kelto-beta", "kelto-dev"});
  EXPECT_EQ(interopURLScheme(bundle, fake.platform.process), "kelto-beta://");
}

TEST_F(BundleInformation, WithoutASuitableSchemeTheFallbackServes) {
  set("KTBuildType", "beta");
  setSchemes({"kelto", "keltoz", "http", 5});
  EXPECT_EQ(interopURLScheme(bundle, fake.platform.process), "kelto://");
}

TEST_F(BundleInformation, SchemesOfALaterEntryDoNotCount) {
  set("KTBuildType", "beta");
  set("CFBundleURLTypes", Array{Dictionary{}, Dictionary{{"CFBundleURLSchemes", Array{"kelto-beta"}}}});
  EXPECT_EQ(interopURLScheme(bundle, fake.platform.process), "kelto://");
}

TEST(BundleInformationAfresh, UrlTypesOfAnotherShapeGiveTheFallback) {
  const Value shapes[] = {"kelto", Array{}, Array{"kelto"}, Array{Dictionary{{"CFBundleURLSchemes", "kelto-beta"}}}};
  for (const Value& shape : shapes) {
    platform::fake::FakePlatform fake;
    fake.bundles.main.info.insert_or_assign("KTBuildType", "beta");
    fake.bundles.main.info.insert_or_assign("CFBundleURLTypes", shape);
    EXPECT_EQ(interopURLScheme(fake.bundles.main, fake.platform.process), "kelto://");
  }
}

TEST_F(BundleInformation, TheSchemeIsThatOfTheProcess) {
  set("KTBuildType", "beta");
  setSchemes({"kelto-beta"});
  EXPECT_EQ(interopURLScheme(bundle, fake.platform.process), "kelto-beta://");
  setSchemes({"kelto-other"});
  EXPECT_EQ(interopURLScheme(bundle, fake.platform.process), "kelto-beta://");
}

TEST_F(BundleInformation, OnlyAListedSchemeMayBeQueried) {
  EXPECT_FALSE(canQueryForScheme(bundle, "http"));
  set("LSApplicationQueriesSchemes", Array{"http", "kelto"});
  EXPECT_TRUE(canQueryForScheme(bundle, "kelto"));
  EXPECT_FALSE(canQueryForScheme(bundle, "Kelto"));
  EXPECT_FALSE(canQueryForScheme(bundle, "kel"));
  set("LSApplicationQueriesSchemes", "http");
  EXPECT_FALSE(canQueryForScheme(bundle, "http"));
}

TEST_F(BundleInformation, TheStoreIdentifierIsGivenAsItIs) {
  EXPECT_EQ(appStoreID(bundle), nullptr);
  set("KTAppStoreID", 1234567);
  ASSERT_NE(appStoreID(bundle), nullptr);
  EXPECT_EQ(*appStoreID(bundle), Value(1234567));
  set("KTAppStoreID", Array{"a", true});
  EXPECT_EQ(*appStoreID(bundle), Value(Array{"a", true}));
}
