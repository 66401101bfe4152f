// The levels that classes have of their own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/runtime/ClassRegistry.h"
#include "logging/DDLog.h"

namespace {

std::int32_t levelOfVerbose = 3;
std::int32_t verboseLevel() { return levelOfVerbose; }
void setVerboseLevel(std::int32_t level) { levelOfVerbose = level; }

foundation::Class* classWith(const std::string& name, const std::vector<foundation::Method>& operations) {
  auto* known = foundation::ClassRegistry::shared().classNamed(name);
  return known != nullptr ? known : foundation::ClassRegistry::shared().add(name, nullptr, {}, operations);
}

foundation::Class* verbose() {
  return classWith("TestVerbose", {{"ddLogLevel", &verboseLevel}, {"ddSetLogLevel:", &setVerboseLevel}});
}

TEST(ClassLevels, AreReadAndSetThroughTheClass) {
  DDLog::setLogLevel_forClass(5, verbose());
  EXPECT_EQ(DDLog::logLevelForClass(verbose()), 5);
  DDLog::setLogLevel_forClassWithName(1, "TestVerbose");
  EXPECT_EQ(DDLog::logLevelForClassWithName("TestVerbose"), 1);
}

TEST(ClassLevels, AClassThatLacksOneOperationAnswersMinusOneAndTakesNothing) {
  levelOfVerbose = 3;
  auto* getterOnly = classWith("TestGetterOnly", {{"ddLogLevel", &verboseLevel}});
  auto* setterOnly = classWith("TestSetterOnly", {{"ddSetLogLevel:", &setVerboseLevel}});
  for (auto* one : {getterOnly, setterOnly}) {
    EXPECT_FALSE(DDLog::isRegisteredClass(one));
    EXPECT_EQ(DDLog::logLevelForClass(one), -1);
    DDLog::setLogLevel_forClass(9, one);
  }
  EXPECT_EQ(levelOfVerbose, 3);
}

TEST(ClassLevels, AnUnknownNameAnswersMinusOne) {
  EXPECT_EQ(DDLog::logLevelForClassWithName("NoSuchClass"), -1);
  DDLog::setLogLevel_forClassWithName(1, "NoSuchClass");
}

TEST(ClassLevels, RegisteredClassesAreThoseWithBothOperations) {
  verbose();
  classWith("TestGetterOnly", {{"ddLogLevel", &verboseLevel}});
  const auto names = DDLog::registeredClassNames();
  EXPECT_THAT(names, testing::Contains("TestVerbose"));
  EXPECT_THAT(names, testing::Not(testing::Contains("TestGetterOnly")));
  EXPECT_EQ(names.size(), DDLog::registeredClasses().size());
}

}  // namespace
