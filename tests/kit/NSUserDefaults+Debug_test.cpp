#include <gtest/gtest.h>

#include "kit/NSBundle+Kelto.h"
#include "kit/NSUserDefaults+Debug.h"
#include "platform/fake/FakePlatform.h"

using namespace NSUserDefaults::Debug;

namespace {

class DebugDefaults : public testing::Test {
 protected:
  void build(const char* type) { fake.bundles.main.info.insert_or_assign("KTBuildType", type); }
  void store(const char* key, foundation::PropertyList::Value value) {
    fake.defaults.values.insert_or_assign(key, std::move(value));
  }

  platform::fake::FakePlatform fake;
};

}  // namespace

TEST_F(DebugDefaults, SettingLevelZeroReadsBackAsTheDefault) {
  build("development");
  store("KTDebugEnabled", true);
  setLoggingLevel(fake.defaults, 7);
  EXPECT_EQ(loggingLevel(fake.defaults, fake.bundles.main), 7);
  setLoggingLevel(fake.defaults, 0);
  EXPECT_EQ(loggingLevel(fake.defaults, fake.bundles.main), 4);
  EXPECT_FALSE(fake.defaults.values.contains("KTLoggingLevel"));
}

TEST_F(DebugDefaults, AReleaseBuildIgnoresStoredSwitches) {
  store("KTDebugEnabled", "YES");
  store("KTLoggingLevel", 7);
  store("KTPurgeCachesOnStartup", true);
  EXPECT_FALSE(isInAppDebuggingEnabled(fake.defaults, fake.bundles.main));
  EXPECT_EQ(loggingLevel(fake.defaults, fake.bundles.main), 4);
  EXPECT_FALSE(cachesPurgedOnStartup(fake.defaults, fake.bundles.main));
}

TEST_F(DebugDefaults, SettersStoreInAReleaseBuildToo) {
  setCachesPurgedOnStartup(fake.defaults, true);
  setLoggingLevel(fake.defaults, 7);
  EXPECT_TRUE(fake.defaults.values.contains("KTPurgeCachesOnStartup"));
  EXPECT_TRUE(fake.defaults.values.contains("KTLoggingLevel"));
}

TEST_F(DebugDefaults, TheFirstEnablingKeyDecidesAlone) {
  build("beta");
  store("KTInAppDebugOptionsEnabled", false);
  store("KTDebugEnabled", true);
  EXPECT_FALSE(isInAppDebuggingEnabled(fake.defaults, fake.bundles.main));
}

TEST_F(DebugDefaults, TheBundleThatIsGivenDecidesWhetherTheBuildIsARelease) {
  store("KTDebugEnabled", true);
  platform::fake::FakeBundle other;
  other.info.insert_or_assign("KTBuildType", "beta");
  EXPECT_TRUE(isInAppDebuggingEnabled(fake.defaults, other));
  EXPECT_FALSE(isInAppDebuggingEnabled(fake.defaults, fake.bundles.main));
}

TEST_F(DebugDefaults, TheSecondEnablingKeyDecidesWhenTheFirstIsAbsent) {
  build("beta");
  EXPECT_FALSE(isInAppDebuggingEnabled(fake.defaults, fake.bundles.main));
  store("KTDebugEnabled", "YES");
  EXPECT_TRUE(isInAppDebuggingEnabled(fake.defaults, fake.bundles.main));
}

TEST_F(DebugDefaults, ResettingLeavesThePurgeSwitches) {
  build("alpha");
  store("KTDebugEnabled", true);
  setCachesPurgedOnStartup(fake.defaults, true);
  setPreferencesPurgedOnStartup(fake.defaults, true);
  setLoggingLevel(fake.defaults, 7);
  resetDebugDefaults(fake.defaults);
  EXPECT_TRUE(cachesPurgedOnStartup(fake.defaults, fake.bundles.main));
  EXPECT_TRUE(preferencesPurgedOnStartup(fake.defaults, fake.bundles.main));
  EXPECT_EQ(loggingLevel(fake.defaults, fake.bundles.main), 4);
}

TEST_F(DebugDefaults, ResettingRemovesTheLevelAndNothingElse) {
  for (const char* key : {"KTInAppDebugOptionsEnabled", "KTDebugEnabled", "KTLoggingLevel", "KTPurgeCachesOnStartup",
                          "KTPurgePreferencesOnStartup"})
    store(key, 5);
  resetDebugDefaults(fake.defaults);
  EXPECT_EQ(fake.defaults.values.size(), 4U);
  EXPECT_FALSE(fake.defaults.values.contains("KTLoggingLevel"));
}

TEST_F(DebugDefaults, WithDebuggingOffNothingIsPurgedAndTheLevelIsTheDefault) {
  build("development");
  store("KTDebugEnabled", false);
  store("KTPurgeCachesOnStartup", true);
  store("KTPurgePreferencesOnStartup", true);
  store("KTLoggingLevel", 7);
  EXPECT_FALSE(cachesPurgedOnStartup(fake.defaults, fake.bundles.main));
  EXPECT_FALSE(preferencesPurgedOnStartup(fake.defaults, fake.bundles.main));
  EXPECT_EQ(loggingLevel(fake.defaults, fake.bundles.main), 4);
}

TEST_F(DebugDefaults, AStoredNoIsANo) {
  build("development");
  store("KTDebugEnabled", true);
  store("KTPurgeCachesOnStartup", "NO");
  store("KTPurgePreferencesOnStartup", false);
  EXPECT_FALSE(cachesPurgedOnStartup(fake.defaults, fake.bundles.main));
  EXPECT_FALSE(preferencesPurgedOnStartup(fake.defaults, fake.bundles.main));
}

TEST_F(DebugDefaults, ANegativeLevelIsKept) {
  build("development");
  store("KTDebugEnabled", true);
  setLoggingLevel(fake.defaults, -1);
  EXPECT_EQ(loggingLevel(fake.defaults, fake.bundles.main), -1);
}

TEST_F(DebugDefaults, SwitchingOffRemovesTheKey) {
  setPreferencesPurgedOnStartup(fake.defaults, true);
  setPreferencesPurgedOnStartup(fake.defaults, false);
  EXPECT_FALSE(fake.defaults.values.contains("KTPurgePreferencesOnStartup"));
}

TEST_F(DebugDefaults, BuildTypesAreFoundAnywhereInTheTextWhateverTheCase) {
  const std::pair<const char*, KTBuildType> cases[] = {{"Beta-Development", KTBuildType::beta},
                                                       {"my ALPHA build", KTBuildType::alpha},
                                                       {"DEV", KTBuildType::development},
                                                       {"final", KTBuildType::release},
                                                       {"", KTBuildType::release}};
  for (const auto& [text, type] : cases) {
    build(text);
    EXPECT_EQ(NSBundle::Kelto::buildType(fake.bundles.main), type) << text;
  }
  build("dev");
  EXPECT_EQ(NSBundle::Kelto::buildTypeName(fake.bundles.main), "DEVELOPMENT");
}

TEST_F(DebugDefaults, TheFirstEnablingKeyAloneEnablesDebugging) {
  build("beta");
  store("KTInAppDebugOptionsEnabled", "YES");
  EXPECT_TRUE(isInAppDebuggingEnabled(fake.defaults, fake.bundles.main));
  store("KTDebugEnabled", false);
  EXPECT_TRUE(isInAppDebuggingEnabled(fake.defaults, fake.bundles.main));
  store("KTLoggingLevel", 7);
  EXPECT_EQ(loggingLevel(fake.defaults, fake.bundles.main), 7);
}
