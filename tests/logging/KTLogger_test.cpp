#include "logging/KTLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/NSUserDefaults+Debug.h"
#include "platform/fake/FakePlatform.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Facade : public testing::Test {
 protected:
  void threshold(int level) {
    fake.enableDebugLogging();
    fake.defaults.values.insert_or_assign("KTLoggingLevel", level);
  }

  void logAllLevels() {
    for (int level = 0; level <= 8; ++level)
      KTLogger::sharedLogger()->log_level_message("caller:", level, "level %d", level);
  }

  platform::fake::FakePlatform fake;
};

}  // namespace

TEST_F(Facade, IsTheSameObjectEveryTime) { EXPECT_EQ(KTLogger::sharedLogger(), KTLogger::sharedLogger()); }

TEST_F(Facade, InstancesComeOnlyFromTheSharedLogger) {
  EXPECT_FALSE(std::is_default_constructible_v<KTLogger>);
  EXPECT_FALSE(std::is_copy_constructible_v<KTLogger>);
}

TEST_F(Facade, TheDefaultThresholdEchoesTheGraverLevelsOnly) {
  logAllLevels();
  EXPECT_THAT(fake.systemLog.lines,
              ElementsAre("<Always> level 0", "<Alert> level 1", "<Error> level 3", "<Warning> level 4"));
}

TEST_F(Facade, AThresholdOfSevenEchoesEveryLevelButTheHoles) {
  threshold(7);
  logAllLevels();
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("<Always> level 0", "<Alert> level 1", "<Error> level 3",
                                                "<Warning> level 4", "<Info> level 5", "<Debug> level 7"));
}

TEST_F(Facade, AHighThresholdDoesNotFillTheHoles) {
  threshold(100);
  for (const int level : {2, 6, 8, 100}) KTLogger::sharedLogger()->log_level_message("caller:", level, "nothing");
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
}

TEST_F(Facade, ANegativeThresholdSilencesEveryLevel) {
  threshold(-1);
  logAllLevels();
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
}

TEST_F(Facade, ANegativeLevelReadsAsALargeOne) {
  threshold(7);
  KTLogger::sharedLogger()->log_level_message("caller:", -1, "nothing");
  EXPECT_THAT(fake.systemLog.lines, IsEmpty());
}

TEST_F(Facade, PercentSignsInArgumentsAreShownLiterally) {
  KTLogger::sharedLogger()->log_level_message("caller:", 3, "%@", "100 %d");
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("<Error> 100 %d"));
}

TEST_F(Facade, DiagnosticsBeginWithTheirPlace) {
  const int object = 0;
  const std::string address = foundation::formatted("%p", static_cast<const void*>(&object));
  KTDiagnostics::log({"KTThing", &object, "do:with:", 12}, 3, "%@ failed", "it");
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("<Error> [KTThing(" + address + ") do:with:]:12 it failed"));
}

TEST_F(Facade, AThresholdThatThisProcessStoresHoldsForTheNextStatement) {
  threshold(4);
  KTLogger::sharedLogger()->log_level_message("caller:", 7, "silenced");
  NSUserDefaults::Debug::setLoggingLevel(fake.defaults, 7);
  KTLogger::sharedLogger()->log_level_message("caller:", 7, "shown");
  NSUserDefaults::Debug::setLoggingLevel(fake.defaults, 4);
  KTLogger::sharedLogger()->log_level_message("caller:", 7, "silenced again");
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("<Debug> shown"));
}

TEST_F(Facade, AThresholdThatAnotherProgramStoresIsNoticedAfterAThousandStatementsOrSo) {
  threshold(4);
  KTLogger::sharedLogger()->log_level_message("caller:", 7, "silenced");
  fake.defaults.values.insert_or_assign("KTLoggingLevel", 7);
  int silenced = 0;
  while (fake.systemLog.lines.empty() && ++silenced < 5000)
    KTLogger::sharedLogger()->log_level_message("caller:", 7, "shown");
  EXPECT_GT(silenced, 1);
  EXPECT_LE(silenced, 1024);
}
