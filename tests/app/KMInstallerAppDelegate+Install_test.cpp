#include "protocol/LaunchArguments.h"
#include "protocol/ToolProtocol.h"
#include "tests/app/InstallerFixture.h"

using namespace tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// The swapped alert of a failed server upgrade.
Alert swappedFailure() {
  return {"text of <InstallerUnexpectedErrorMessage>", "text of <InstallerUnexpectedErrorSubtitle>", "text of <OK>"};
}

class Install : public KMInstallerAppDelegateTest {
 protected:
  // The new bundle has another file name than the installed one.
  void launchRenamingUpdate() {
    addController("/tmp/new/App 2.app", "com.kelto.macController", "New Kelto");
    argument(protocol::sourcePathArgument, "/tmp/new/App 2.app");
    argument(protocol::trashPathArgument, installedBundle);
    argument(protocol::isUpdateArgument, "YES");
    launch();
  }
};

}  // namespace

TEST_F(Install, TheInstalledBundleIsReplacedByTheNewOne) {
  launchUpdate();
  authorize();
  ASSERT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand));
  EXPECT_EQ(tool.jobs[0].at(protocol::destinationPathKey), installedBundle);
  EXPECT_EQ(tool.jobs[0].at(protocol::sourcePathKey), newBundle);
}

TEST_F(Install, TheSameFileNameNeedsNoMoveAndIsRelaunchedFromThere) {
  launchUpdate();
  authorize();
  EXPECT_EQ(delegate.dstPath(), installedBundle);
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand));
  ASSERT_EQ(fake.workspace.launches.size(), 1U);
  EXPECT_EQ(fake.workspace.launches[0].path, installedBundle);
}

TEST_F(Install, ANewFileNameIsMovedToAndRelaunched) {
  launchRenamingUpdate();
  authorize();
  ASSERT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand, protocol::moveFileCommand));
  EXPECT_EQ(tool.jobs[1].at(protocol::sourcePathKey), installedBundle);
  EXPECT_EQ(tool.jobs[1].at(protocol::destinationPathKey), "/Applications/App 2.app");
  EXPECT_EQ(fake.workspace.launches.at(0).path, "/Applications/App 2.app");
}

TEST_F(Install, ABundleAlreadyUnderTheNewNameIsLeftAndRelaunched) {
  fake.files.addFolder("/Applications/App 2.app");
  launchRenamingUpdate();
  authorize();
  ASSERT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand));
  EXPECT_EQ(tool.jobs[0].at(protocol::destinationPathKey), installedBundle);
  EXPECT_EQ(fake.workspace.launches.at(0).path, "/Applications/App 2.app");
}

TEST_F(Install, NothingAtTheOldNameMeansNoMove) {
  tool.work = [this](const tests::FakeTool::Job&) { fake.files.items.erase(installedBundle); };
  launchRenamingUpdate();
  authorize();
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand));
}

TEST_F(Install, AFailedReplacementIsAGeneralFailureAndNothingIsRelaunched) {
  tool.results[protocol::replaceItemCommand] = "no";
  launchUpdate();
  authorize();
  EXPECT_THAT(fake.application.alerts, ElementsAre(generalFailure()));
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_THAT(fake.workspace.launches, IsEmpty());
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand));
}

TEST_F(Install, AFailedMoveIsAGeneralFailureAndNothingIsRelaunched) {
  tool.results[protocol::moveFileCommand] = "no";
  launchRenamingUpdate();
  authorize();
  EXPECT_THAT(fake.application.alerts, ElementsAre(generalFailure()));
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_THAT(fake.workspace.launches, IsEmpty());
}

TEST_F(Install, WithoutARunningLibraryServerThereIsNoUpgradeAndNoPreference) {
  launchUpdate();
  authorize();
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand));
  EXPECT_THAT(fake.shell.commandLines, IsEmpty());
}

TEST_F(Install, ARunningLibraryServerIsUpgradedForTheBundleAtItsNewPlace) {
  installLibraryServer();
  launchRenamingUpdate();
  authorize();
  ASSERT_THAT(tool.commands(),
              ElementsAre(protocol::replaceItemCommand, protocol::moveFileCommand, protocol::upgradeServerCommand));
  EXPECT_EQ(tool.jobs[2].at(protocol::filePathKey), "/Applications/App 2.app");
  EXPECT_EQ(tool.jobs[2].size(), 3U);
}

TEST_F(Install, ASuccessfulUpgradeWritesThePreferenceThroughTheShell) {
  installLibraryServer();
  fake.shell.status = 256;
  launchUpdate();
  authorize();
  EXPECT_THAT(fake.shell.commandLines, ElementsAre("defaults write com.kelto.macController LibraryServerVersion 2"));
  EXPECT_THAT(fake.application.alerts, IsEmpty());
  EXPECT_EQ(fake.workspace.launches.size(), 1U);
}

TEST_F(Install, AFailedUpgradeShowsTheSwappedAlertAndTheRunGoesOn) {
  installLibraryServer();
  tool.results[protocol::upgradeServerCommand] = "no";
  launchUpdate();
  fake.application.whileAlertIsUp = [this](const Alert&) { EXPECT_THAT(fake.workspace.launches, IsEmpty()); };
  authorize();
  EXPECT_THAT(fake.application.alerts, ElementsAre(swappedFailure()));
  EXPECT_FALSE(fake.application.isTerminated);
  EXPECT_THAT(fake.shell.commandLines, IsEmpty());
  EXPECT_EQ(fake.workspace.launches.size(), 1U);
  fake.runLoop.advance(1s);
  EXPECT_TRUE(fake.application.isTerminated);
}

TEST_F(Install, AnUpdateIsRelaunchedToResumeItself) {
  launchUpdate();
  authorize();
  ASSERT_EQ(fake.workspace.launches.size(), 1U);
  EXPECT_EQ(fake.workspace.launches[0].arguments,
            (std::vector<std::string>{std::string("-") + protocol::resumeArgument, "YES"}));
  EXPECT_EQ(fake.workspace.launches[0].options, 0x10000U);
}

TEST_F(Install, AnInstallIsLaunchedWithoutArguments) {
  launchInstall();
  authorize();
  EXPECT_EQ(fake.workspace.launches.at(0).arguments, std::nullopt);
  EXPECT_EQ(fake.workspace.launches.at(0).options, 0x10000U);
}

TEST_F(Install, TheRightsAreReleasedBeforeTheControllerIsLaunched) {
  launchUpdate();
  fake.workspace.onLaunch = [this] {
    EXPECT_FALSE(delegate.authorized());
    EXPECT_EQ(fake.authorization.calls.back(), "free 2 8");
  };
  authorize();
  EXPECT_EQ(fake.workspace.launches.size(), 1U);
}

TEST_F(Install, AFailedRelaunchIsSilentAndTheInstallerStillEnds) {
  launchUpdate();
  fake.workspace.applications.clear();
  authorize();
  fake.runLoop.advance(1s);
  EXPECT_EQ(fake.workspace.launches.size(), 1U);
  EXPECT_THAT(fake.application.alerts, IsEmpty());
  EXPECT_TRUE(fake.application.isTerminated);
}

TEST_F(Install, TheLibraryServerIsLookedForOnlyOnceTheBundleIsInItsPlace) {
  installLibraryServer();
  launchRenamingUpdate();
  tool.work = [this](const tests::FakeTool::Job& job) {
    if (job.at(protocol::commandKey) != protocol::upgradeServerCommand) fake.journal.clear();
    EXPECT_EQ(fake.journal.contains("serviceManagement.copyJobDictionary"),
              job.at(protocol::commandKey) == protocol::upgradeServerCommand);
  };
  authorize();
  EXPECT_THAT(tool.commands(),
              ElementsAre(protocol::replaceItemCommand, protocol::moveFileCommand, protocol::upgradeServerCommand));
  EXPECT_EQ(fake.services.asked.size(), 1U);
}

TEST_F(Install, AFailedReplacementDoesNotAskForTheLibraryServer) {
  installLibraryServer();
  tool.results[protocol::replaceItemCommand] = "no";
  launchUpdate();
  authorize();
  EXPECT_THAT(fake.services.asked, IsEmpty());
}

TEST_F(Install, WhileTheShellRunsNothingElseDoes) {
  installLibraryServer();
  launchUpdate();
  bool hasRun = false;
  fake.shell.whileRunning = [&](const std::string&) {
    fake.runLoop.performAfterDelay(0s, this, [&] { hasRun = true; });
    fake.clock.advance(30s);
    EXPECT_FALSE(hasRun);
  };
  authorize();
  fake.runLoop.runPending();
  EXPECT_TRUE(hasRun);
  EXPECT_TRUE(inOrder("shell.system", "workspace.launchApplication"));
}

TEST_F(Install, TheInstallerTerminatesAFifthOfASecondAfterTheLaunch) {
  launchUpdate();
  authorize();
  EXPECT_THAT(fake.runLoop.pendingDelays(&delegate), ElementsAre(Seconds(std::chrono::nanoseconds(200'000'002))));
  fake.runLoop.advance(200ms);
  EXPECT_FALSE(fake.application.isTerminated);
  fake.runLoop.advance(3ns);
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_THAT(fake.application.terminateSenders, ElementsAre(static_cast<const void*>(&delegate)));
}
