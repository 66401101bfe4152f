#pragma once
// The contract of LeveledSystemLog. A World has `log()`, and `lines()`, the levels and texts that came out so far.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/LoggingHost.h"

namespace tests::contracts {

template <class World>
class LeveledSystemLogContract : public testing::Test {
 protected:
  World world;
};

TYPED_TEST_SUITE_P(LeveledSystemLogContract);

TYPED_TEST_P(LeveledSystemLogContract, LinesComeOutInOrderAtTheirLevels) {
  auto& log = this->world.log();
  log.open("com.apple.console");
  log.log(2, "critical");
  log.log(5, "notice");
  log.log(3, "error");
  EXPECT_THAT(this->world.lines(),
              testing::ElementsAre(testing::Pair(2, "critical"), testing::Pair(5, "notice"), testing::Pair(3, "error")));
}

TYPED_TEST_P(LeveledSystemLogContract, TextIsShownAsItIs) {
  this->world.log().open("com.apple.console");
  this->world.log().log(4, "100%s %n, \u00e4");
  EXPECT_THAT(this->world.lines(), testing::ElementsAre(testing::Pair(4, "100%s %n, \u00e4")));
}

TYPED_TEST_P(LeveledSystemLogContract, AnUnknownFacilityAndASecondOpeningDoNoHarm) {
  this->world.log().open("no such facility");
  this->world.log().open("no such facility");
  this->world.log().log(3, "line");
  EXPECT_THAT(this->world.lines(), testing::ElementsAre(testing::Pair(3, "line")));
}

REGISTER_TYPED_TEST_SUITE_P(LeveledSystemLogContract, LinesComeOutInOrderAtTheirLevels, TextIsShownAsItIs,
                            AnUnknownFacilityAndASecondOpeningDoNoHarm);

}  // namespace tests::contracts
