#pragma once
// The contract of Workspace and RunningApplication.
//
// A World has: `workspace()`; `identifier()` and `path()` of an application; `start(quits)`, which starts a copy of it that
// quits when asked, or stays; `crash()`, which ends that copy behind the workspace's back; `launchedPath()` of an
// application that may be launched, and `hasBeenLaunched()` whether it was; `missingPath()`, where no application is;
// `waitFor(condition)`.
#include <gtest/gtest.h>

#include "platform/Workspace.h"

namespace tests::contracts {

template <class World>
class WorkspaceContract : public testing::Test {
 protected:
  std::vector<std::shared_ptr<platform::RunningApplication>> copies() {
    return world.workspace().runningApplications(world.identifier());
  }
  bool launch(const std::string& path) {
    return world.workspace().launchApplication(path, platform::NSWorkspaceLaunchDefault, nullptr);
  }
  World world;
};

TYPED_TEST_SUITE_P(WorkspaceContract);

TYPED_TEST_P(WorkspaceContract, OnlyCopiesWithTheIdentifierAreListed) {
  EXPECT_TRUE(this->copies().empty());
  this->world.start(true);
  EXPECT_EQ(this->copies().size(), 1U);
  EXPECT_TRUE(this->world.workspace().runningApplications("com.kelto.another").empty());
  EXPECT_TRUE(this->world.workspace().runningApplications("").empty());
}

TYPED_TEST_P(WorkspaceContract, ACopyThatQuitsWhenAskedIsListedNoMore) {
  this->world.start(true);
  EXPECT_TRUE(this->copies().at(0)->terminate());
  EXPECT_TRUE(this->world.waitFor([this] { return this->copies().empty(); }));
}

TYPED_TEST_P(WorkspaceContract, ACopyThatRefusesStaysAndCanBeAskedAgain) {
  this->world.start(false);
  const auto copy = this->copies().at(0);
  EXPECT_TRUE(copy->terminate());
  EXPECT_TRUE(copy->terminate());
  EXPECT_EQ(this->copies().size(), 1U);
}

TYPED_TEST_P(WorkspaceContract, ACopyThatHasEndedCannotBeAsked) {
  this->world.start(true);
  const auto copy = this->copies().at(0);
  this->world.crash();
  EXPECT_FALSE(copy->terminate());
  EXPECT_TRUE(this->copies().empty());
}

TYPED_TEST_P(WorkspaceContract, AnApplicationIsLaunched) {
  EXPECT_TRUE(this->launch(this->world.launchedPath()));
  EXPECT_TRUE(this->world.waitFor([this] { return this->world.hasBeenLaunched(); }));
}

TYPED_TEST_P(WorkspaceContract, AnApplicationThatIsNotThereCannotBeLaunched) {
  EXPECT_FALSE(this->launch(this->world.missingPath()));
  EXPECT_FALSE(this->launch(""));
}

REGISTER_TYPED_TEST_SUITE_P(WorkspaceContract, OnlyCopiesWithTheIdentifierAreListed, ACopyThatQuitsWhenAskedIsListedNoMore,
                            ACopyThatRefusesStaysAndCanBeAskedAgain, ACopyThatHasEndedCannotBeAsked,
                            AnApplicationIsLaunched, AnApplicationThatIsNotThereCannotBeLaunched);

}  // namespace tests::contracts
