// The debug switches as the command `defaults` writes them.
#include <gtest/gtest.h>

#include "kit/NSUserDefaults+Debug.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/UserDefaults.h"
#include "tests/support/CommandLine.h"
#include "tests/support/Environment.h"
#include "tests/support/TemporaryFolder.h"

using namespace NSUserDefaults::Debug;
using tests::Outcome;

namespace {

class RealDebugDefaults : public testing::Test {
 protected:
  RealDebugDefaults() { fake.bundles.main.info.insert_or_assign("KTBuildType", "beta"); }

  static Outcome command(const std::string& arguments) {
    return tests::runCommandLine(KELTO_BIN_DIR "/defaults " + arguments + " 2>&1");
  }
  static void write(const std::string& arguments) {
    ASSERT_EQ(command("write com.kelto.test " + arguments), (Outcome{0, ""}));
  }

  platform::fake::FakePlatform fake;
  tests::TemporaryFolder folder;
  tests::EnvironmentVariable configHome{"XDG_CONFIG_HOME", folder.path()};
  const char* arguments[1] = {"program"};
  platform::Linux::UserDefaults defaults{1, arguments, "com.kelto.test", fake.systemLog};
};

}  // namespace

TEST_F(RealDebugDefaults, SeesValuesThatTheCommandWrites) {
  EXPECT_FALSE(isInAppDebuggingEnabled(defaults, fake.bundles.main));
  write("KTDebugEnabled -bool true");
  write("KTLoggingLevel -int 7");
  write("KTPurgeCachesOnStartup -bool true");
  EXPECT_TRUE(isInAppDebuggingEnabled(defaults, fake.bundles.main));
  EXPECT_EQ(loggingLevel(defaults, fake.bundles.main), 7);
  EXPECT_TRUE(cachesPurgedOnStartup(defaults, fake.bundles.main));
  EXPECT_FALSE(preferencesPurgedOnStartup(defaults, fake.bundles.main));
}

TEST_F(RealDebugDefaults, TextIsReadByTheUsualRules) {
  write("KTDebugEnabled YES");
  write("KTLoggingLevel 7");
  write("KTPurgePreferencesOnStartup 1");
  write("KTPurgeCachesOnStartup NO");
  EXPECT_TRUE(isInAppDebuggingEnabled(defaults, fake.bundles.main));
  EXPECT_EQ(loggingLevel(defaults, fake.bundles.main), 7);
  EXPECT_TRUE(preferencesPurgedOnStartup(defaults, fake.bundles.main));
  EXPECT_FALSE(cachesPurgedOnStartup(defaults, fake.bundles.main));
  write("KTLoggingLevel ' 5 and more'");
  EXPECT_EQ(loggingLevel(defaults, fake.bundles.main), 5);
  write("KTInAppDebugOptionsEnabled NO");
  EXPECT_FALSE(isInAppDebuggingEnabled(defaults, fake.bundles.main));
}

TEST_F(RealDebugDefaults, TheCommandReadsValuesThatAreSet) {
  setLoggingLevel(defaults, 5);
  setCachesPurgedOnStartup(defaults, true);
  EXPECT_EQ(command("read com.kelto.test KTLoggingLevel"), (Outcome{0, "5\n"}));
  EXPECT_EQ(command("read com.kelto.test KTPurgeCachesOnStartup"), (Outcome{0, "1\n"}));
  setLoggingLevel(defaults, 0);
  EXPECT_NE(command("read com.kelto.test KTLoggingLevel").status, 0);
}

TEST_F(RealDebugDefaults, AReleaseBuildIgnoresWhatTheCommandWrites) {
  write("KTDebugEnabled YES");
  write("KTLoggingLevel 7");
  fake.bundles.main.info.erase("KTBuildType");
  EXPECT_FALSE(isInAppDebuggingEnabled(defaults, fake.bundles.main));
  EXPECT_EQ(loggingLevel(defaults, fake.bundles.main), 4);
}
