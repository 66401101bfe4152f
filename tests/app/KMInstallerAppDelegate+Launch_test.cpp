#include "protocol/Credentials.h"
#include "protocol/LaunchArguments.h"
#include "protocol/ToolProtocol.h"
#include "tests/app/InstallerFixture.h"

using namespace tests;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(KMInstallerAppDelegateTest, OnlyATrashPathMeansUninstall) {
  launchUninstall();
  EXPECT_TRUE(delegate.isUninstall());
  EXPECT_FALSE(delegate.isUpdate());
  EXPECT_EQ(delegate.srcPath(), std::nullopt);
  EXPECT_EQ(delegate.trashPath(), installedBundle);
  EXPECT_EQ(titleText->text, "text of <InstallerUninstallKeltoSubtitle>");
  EXPECT_EQ(bodyText->text, "text of <InstallerUninstallKeltoBody>");
  EXPECT_EQ(cancelButton->title, "text of <Cancel>");
  EXPECT_EQ(nextButton->title, "text of <Done>");
  EXPECT_EQ(delegate.bundleName(), "Kelto");
  EXPECT_EQ(window->currentFrame.size.height, 206.0);
}

TEST_F(KMInstallerAppDelegateTest, BothPathsAndTheUpdateFlagMeanUpdate) {
  launchUpdate();
  EXPECT_FALSE(delegate.isUninstall());
  EXPECT_TRUE(delegate.isUpdate());
  EXPECT_THAT(window->displays, IsEmpty());
  EXPECT_EQ(window->currentFrame.size.height, 250.0);
  EXPECT_EQ(titleText->text, "text of <ControllerUpdateWizard_Title>");
  EXPECT_EQ(bodyText->text, "text of <ControllerUpdateWizard_Installing>");
  EXPECT_EQ(cancelButton->title, "text of <Cancel>");
  EXPECT_EQ(nextButton->title, "text of <Next>");
}

TEST_F(KMInstallerAppDelegateTest, BothPathsWithoutTheUpdateFlagMeanInstall) {
  launchInstall();
  EXPECT_FALSE(delegate.isUninstall());
  EXPECT_FALSE(delegate.isUpdate());
  EXPECT_EQ(titleText->text, "text of <InstallerInstallKeltoSubtitle>");
  EXPECT_EQ(bodyText->text, "text of <InstallerInstallKeltoBody>");
  EXPECT_EQ(cancelButton->title, "text of <Cancel>");
  EXPECT_EQ(nextButton->title, "text of <Done>");
}

TEST_F(KMInstallerAppDelegateTest, InstallAndUninstallSetTheHeightTo206WithoutRedisplay) {
  const foundation::Point origin = window->currentFrame.origin;
  argument(protocol::mainFrameArgument, "{{10, 20}, {400, 206}}");
  launchInstall();
  EXPECT_THAT(window->displays, ElementsAre(false));
  EXPECT_EQ(window->currentFrame.size, (foundation::Size{400, 206}));
  EXPECT_EQ(window->currentFrame.origin, (foundation::Point{origin.x, origin.y + 6}));
}

TEST_F(KMInstallerAppDelegateTest, TheUpdateFlagWithOnlyATrashPathShowsTheUpdateTextsInUninstallMode) {
  argument(protocol::isUpdateArgument, "YES");
  launchUninstall();
  EXPECT_TRUE(delegate.isUpdate());
  EXPECT_TRUE(delegate.isUninstall());
  EXPECT_EQ(titleText->text, "text of <ControllerUpdateWizard_Title>");
  EXPECT_EQ(nextButton->title, "text of <Next>");
  EXPECT_THAT(window->displays, IsEmpty());
}

TEST_F(KMInstallerAppDelegateTest, OnlyASourcePathIsAnInstall) {
  argument(protocol::sourcePathArgument, newBundle);
  launch();
  EXPECT_FALSE(delegate.isUninstall());
  EXPECT_EQ(delegate.trashPath(), std::nullopt);
}

TEST_F(KMInstallerAppDelegateTest, AValueOfAnotherKindStillCountsAsGiven) {
  argument(protocol::sourcePathArgument, foundation::PropertyList::Array{"a"});
  launchUninstall();
  EXPECT_FALSE(delegate.isUninstall());
  EXPECT_THAT(fake.application.alerts, ElementsAre(generalFailure()));
}

TEST_F(KMInstallerAppDelegateTest, TheNewBundleDescribesTheControllerInInstallAndUpdateMode) {
  launchInstall();
  EXPECT_EQ(delegate.bundleId(), "com.kelto.macController");
  EXPECT_EQ(delegate.bundleName(), "New Kelto");
}

TEST_F(KMInstallerAppDelegateTest, TheWizardIsPlacedOverTheControllersWindow) {
  argument(protocol::mainFrameArgument, "r: {{100, 100}, {800, 600}}");
  launchInstall();
  EXPECT_EQ(window->currentFrame, (foundation::Rect{{300, 303}, {400, 206}}));
  EXPECT_FALSE(window->isCentered);
}

TEST_F(KMInstallerAppDelegateTest, EveryOccurrenceOfThePrefixIsDeletedFromTheFrame) {
  argument(protocol::mainFrameArgument, "r: {r: {100, r: 100}, {800, 600}}");
  launchInstall();
  EXPECT_EQ(window->currentFrame.origin, (foundation::Point{300, 303}));
}

TEST_F(KMInstallerAppDelegateTest, AnEmptyFrameCentresTheWindow) {
  argument(protocol::mainFrameArgument, "{{0, 0}, {0, 0}}");
  launchInstall();
  EXPECT_TRUE(window->isCentered);
  EXPECT_FALSE(fake.journal.contains("window.setFrameOrigin"));
}

TEST_F(KMInstallerAppDelegateTest, AMissingFrameCentresTheWindow) {
  launchInstall();
  EXPECT_TRUE(window->isCentered);
}

class UnreadableFrame : public KMInstallerAppDelegateTest, public testing::WithParamInterface<const char*> {};

TEST_P(UnreadableFrame, CentresTheWindow) {
  argument(protocol::mainFrameArgument, GetParam());
  launchInstall();
  EXPECT_TRUE(window->isCentered);
  EXPECT_FALSE(fake.journal.contains("window.setFrameOrigin"));
}

INSTANTIATE_TEST_SUITE_P(Launch, UnreadableFrame,
                         testing::Values("", "rubbish", "800 600", "{{100, 100}, {800, 600", "{{100, 100}",
                                         "{100, 100, 800, 600}", "{{100, 100}, {wide, high}}", "r: ", "{{}, {}}"));

TEST_F(KMInstallerAppDelegateTest, AFrameOfAnotherKindThanTextCentresTheWindow) {
  argument(protocol::mainFrameArgument, foundation::PropertyList::Array{"{{100, 100}, {800, 600}}"});
  launchInstall();
  EXPECT_TRUE(window->isCentered);
}

TEST_F(KMInstallerAppDelegateTest, AFrameWithoutAreaCentresTheWindow) {
  argument(protocol::mainFrameArgument, "{{5, 5}, {800, -1}}");
  launchInstall();
  EXPECT_TRUE(window->isCentered);
}

TEST_F(KMInstallerAppDelegateTest, AnOddHalvedDifferenceIsRoundedDown) {
  argument(protocol::mainFrameArgument, "{{0, 0}, {801, 207}}");
  launchInstall();
  EXPECT_EQ(window->currentFrame.origin, (foundation::Point{200, 0 + 0 + 6}));
}

TEST_F(KMInstallerAppDelegateTest, ANegativeHalvedDifferenceIsRoundedDownToo) {
  argument(protocol::mainFrameArgument, "{{50, 50}, {399, 205}}");
  launchInstall();
  EXPECT_EQ(window->currentFrame.origin, (foundation::Point{49, 55}));
}

TEST_F(KMInstallerAppDelegateTest, TheHalvedDifferenceIsFlooredInSinglePrecision) {
  // (33554833.96 - 400) / 2 is 16777216.98; single precision knows only even numbers there and rounds it up to ...218.
  argument(protocol::mainFrameArgument, "{{0, 0}, {33554835.9, 206}}");
  launchInstall();
  EXPECT_EQ(window->currentFrame.origin.x, static_cast<double>(static_cast<float>((33554835.9 - 400) * 0.5)));
  EXPECT_EQ(window->currentFrame.origin.x, 16777218.0);
}

TEST_F(KMInstallerAppDelegateTest, TheHalvedDifferenceOfTheHeightsIsFlooredInSinglePrecisionToo) {
  argument(protocol::mainFrameArgument, "{{0, 0}, {400, 33554639.96}}");  // half the difference is 16777216.98
  launchInstall();
  EXPECT_EQ(window->currentFrame.origin, (foundation::Point{0, 16777216.0 + 6}));
  argument(protocol::mainFrameArgument, "{{0, 0}, {400, 33554641.9}}");  // 16777217.95, in single precision 16777218
  launchInstall();
  EXPECT_EQ(window->currentFrame.origin, (foundation::Point{0, 16777218.0 + 6}));
}

TEST_F(KMInstallerAppDelegateTest, TheWindowIsShownOnceItStandsInItsPlaceWithAllItsTexts) {
  argument(protocol::mainFrameArgument, "{{100, 100}, {800, 600}}");
  launchInstall();
  EXPECT_THAT(fake.journal.calls(),
              testing::IsSupersetOf({"window.setFrame", "window.setFrameOrigin", "window.setTitle", "button.setTitle",
                                     "textField.setStringValue", "window.makeKeyAndOrderFront"}));
  const auto& calls = fake.journal.calls();
  const auto shown = std::ranges::find(calls, "window.makeKeyAndOrderFront");
  for (auto later = shown + 1; later < calls.end(); ++later) EXPECT_EQ(*later, "progressIndicator.startAnimation");
}

TEST_F(KMInstallerAppDelegateTest, AWindowInTheMiddleOfTheScreenIsShownOnceItIsThere) {
  launchInstall();
  EXPECT_TRUE(inOrder("window.center", "window.makeKeyAndOrderFront"));
}

TEST_F(KMInstallerAppDelegateTest, TheCredentialsAreListenedForBeforeTheWindowIsShown) {
  launchInstall();
  EXPECT_TRUE(inOrder("distributedNotificationCenter.addObserver", "window.makeKeyAndOrderFront"));
}

TEST_F(KMInstallerAppDelegateTest, TheTitleIsTheInstallersOwnBundleName) {
  launchUpdate();
  EXPECT_EQ(window->title, "Kelto Installer");
}

TEST_F(KMInstallerAppDelegateTest, TheWindowIsShownAndTheProgressBarAnimatesOnItsOwnThread) {
  launchUpdate();
  EXPECT_TRUE(window->isKey);
  EXPECT_TRUE(progressBar->usesThreadedAnimation);
  EXPECT_TRUE(progressBar->isAnimating);
}

TEST_F(KMInstallerAppDelegateTest, TheCredentialsNotificationIsObserved) {
  launchUpdate();
  EXPECT_THAT(fake.distributedNotificationCenter.observed, ElementsAre(protocol::credentialsNotification));
}

TEST_F(KMInstallerAppDelegateTest, ABundleIdentifierSchedulesTheTimeOut) {
  launchUpdate();
  EXPECT_THAT(fake.runLoop.pendingDelays(&delegate), ElementsAre(Seconds(5.0)));
  EXPECT_THAT(fake.application.alerts, IsEmpty());
}

TEST_F(KMInstallerAppDelegateTest, APathWithoutABundleIsAGeneralFailureAtOnce) {
  argument(protocol::sourcePathArgument, "/tmp/nothing.app");
  argument(protocol::trashPathArgument, installedBundle);
  launch();
  EXPECT_EQ(delegate.bundleId(), std::nullopt);
  EXPECT_EQ(delegate.bundleName(), std::nullopt);
  EXPECT_THAT(fake.application.alerts, ElementsAre(generalFailure()));
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_THAT(fake.runLoop.pendingDelays(&delegate), IsEmpty());
  EXPECT_THAT(fake.authorization.calls, IsEmpty());
}

TEST_F(KMInstallerAppDelegateTest, NoArgumentsAreAGeneralFailureAtOnce) {
  launch();
  EXPECT_FALSE(delegate.isUninstall());
  EXPECT_THAT(fake.application.alerts, ElementsAre(generalFailure()));
  EXPECT_TRUE(fake.application.isTerminated);
}

TEST_F(KMInstallerAppDelegateTest, ABundleWithoutIdentifierIsAGeneralFailureAtOnce) {
  fake.bundles.others[newBundle]->info.erase("CFBundleIdentifier");
  launchUpdate();
  EXPECT_THAT(fake.application.alerts, ElementsAre(generalFailure()));
}

TEST_F(KMInstallerAppDelegateTest, MissingOutletsAreTolerated) {
  window.reset();
  titleText.reset();
  bodyText.reset();
  cancelButton.reset();
  nextButton.reset();
  progressBar.reset();
  argument(protocol::mainFrameArgument, "{{100, 100}, {800, 600}}");
  launchInstall();
  EXPECT_THAT(fake.runLoop.pendingDelays(&delegate), ElementsAre(Seconds(5.0)));
}

TEST_F(KMInstallerAppDelegateTest, AnOutletOfAnotherKindIsNotConnected) {
  delegate.connectOutlet("window", titleText);
  delegate.connectOutlet("noSuchOutlet", titleText);
  launchInstall();
  EXPECT_FALSE(window->isKey);
  EXPECT_EQ(titleText->text, "text of <InstallerInstallKeltoSubtitle>");
}

TEST_F(KMInstallerAppDelegateTest, AnErrorMessageIsShownAsItStandsAndThenTheRunEnds) {
  delegate.presentErrorMessage_title("100 %@ of %d", "Headline");
  EXPECT_THAT(fake.application.alerts, ElementsAre(Alert{"Headline", "100 %@ of %d", "text of <OK>"}));
  EXPECT_THAT(fake.application.terminateSenders, ElementsAre(static_cast<const void*>(&delegate)));
}
