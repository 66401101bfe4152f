#include "protocol/Credentials.h"
#include "tests/app/InstallerFixture.h"

using namespace tests;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

TEST_F(KMInstallerAppDelegateTest, TimeOutShowsGeneralFailureFiveSecondsAfterLaunch) {
  launchUpdate();
  fake.runLoop.advance(4999ms);
  EXPECT_THAT(fake.application.alerts, IsEmpty());
  fake.application.whileAlertIsUp = [this](const Alert&) { EXPECT_FALSE(fake.application.isTerminated); };
  fake.runLoop.advance(1ms);
  EXPECT_THAT(fake.application.alerts, ElementsAre(generalFailure()));
  EXPECT_TRUE(fake.application.isTerminated);
}

TEST_F(KMInstallerAppDelegateTest, CredentialsCancelTheTimeOutAndScheduleTheQuitting) {
  launchUpdate();
  fake.runLoop.advance(2s);
  postCredentials();
  EXPECT_TRUE(delegate.authorized());
  EXPECT_THAT(fake.runLoop.pendingDelays(&delegate), ElementsAre(Seconds(1.0)));
}

TEST_F(KMInstallerAppDelegateTest, CredentialsAreAdoptedAndConfirmedWithoutInteraction) {
  launchUpdate();
  postCredentials();
  EXPECT_THAT(fake.authorization.calls,
              ElementsAre("create 0", "free 1 8", "createFromExternalForm", platform::fake::copiedRights(2, 18)));
  EXPECT_THAT(fake.authorization.adoptedForm.bytes, testing::Each(std::byte{7}));
}

TEST_F(KMInstallerAppDelegateTest, NothingIsQuitBeforeTheSecondIsOver) {
  launchUpdate();
  const auto copy = startController();
  postCredentials();
  fake.runLoop.advance(999ms);
  EXPECT_EQ(copy->quitRequests, 0);
  fake.runLoop.advance(1ms);
  EXPECT_EQ(copy->quitRequests, 1);
}

TEST_F(KMInstallerAppDelegateTest, ANotificationWithoutCredentialsIsAGeneralFailure) {
  launchUpdate();
  fake.distributedNotificationCenter.post({protocol::credentialsNotification, "", {{"other", "text"}}});
  fake.runLoop.runPending();
  EXPECT_THAT(fake.application.alerts, ElementsAre(generalFailure()));
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_THAT(fake.authorization.calls, IsEmpty());
}

TEST_F(KMInstallerAppDelegateTest, RefusedRightsNameTheFolderOfTheInstalledBundle) {
  fake.authorization.copyRightsStatus = platform::errAuthorizationDenied;
  launchUpdate();
  postCredentials();
  EXPECT_FALSE(delegate.authorized());
  EXPECT_THAT(fake.application.alerts,
              ElementsAre(Alert{"text of <InstallerBadPermissionSubtitle>",
                                "text of <InstallerBadPermissionMessage_1> with Applications", "text of <OK>"}));
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_THAT(fake.runLoop.pendingDelays(&delegate), IsEmpty());
}

TEST_F(KMInstallerAppDelegateTest, RefusedRightsNameTheFolderOfTheInstalledBundleWhenUninstallingToo) {
  fake.authorization.copyRightsStatus = platform::errAuthorizationDenied;
  launchUninstall();
  postCredentials();
  ASSERT_EQ(fake.application.alerts.size(), 1U);
  EXPECT_EQ(fake.application.alerts[0].informativeText, "text of <InstallerBadPermissionMessage_1> with Applications");
}

TEST_F(KMInstallerAppDelegateTest, WithoutAnInstalledBundleTheRefusalShowsThatNothingWasNamed) {
  fake.authorization.copyRightsStatus = platform::errAuthorizationDenied;
  argument(protocol::sourcePathArgument, newBundle);
  launch();
  postCredentials();
  ASSERT_EQ(fake.application.alerts.size(), 1U);
  EXPECT_EQ(fake.application.alerts[0].informativeText, "text of <InstallerBadPermissionMessage_1> with (null)");
}

TEST_F(KMInstallerAppDelegateTest, CredentialsThatNobodyExportedAreRefused) {
  launchUpdate();
  fake.distributedNotificationCenter.post({protocol::credentialsNotification,
                                           "any sender",
                                           {{protocol::credentialsKey, foundation::PropertyList::Data(32, std::byte{8})}}});
  fake.runLoop.runPending();
  EXPECT_FALSE(delegate.authorized());
  EXPECT_EQ(fake.application.alerts.at(0).messageText, "text of <InstallerBadPermissionSubtitle>");
}

TEST_F(KMInstallerAppDelegateTest, CredentialsThatAreTooShortAreRefused) {
  launchUpdate();
  postCredentials(31);
  EXPECT_FALSE(delegate.authorized());
  EXPECT_THAT(fake.authorization.calls, Not(Contains("createFromExternalForm")));
  EXPECT_EQ(fake.application.alerts.at(0).messageText, "text of <InstallerBadPermissionSubtitle>");
}

TEST_F(KMInstallerAppDelegateTest, CredentialsOfAnotherKindThanDataAreRefused) {
  launchUpdate();
  fake.distributedNotificationCenter.post({protocol::credentialsNotification, "", {{protocol::credentialsKey, "text"}}});
  fake.runLoop.runPending();
  EXPECT_EQ(fake.application.alerts.at(0).messageText, "text of <InstallerBadPermissionSubtitle>");
}

TEST_F(KMInstallerAppDelegateTest, WithoutAuthorizationServicesTheRightsAreRefused) {
  fake.authorization.createStatus = platform::errAuthorizationInternal;
  launchUpdate();
  postCredentials();
  EXPECT_EQ(fake.application.alerts.at(0).messageText, "text of <InstallerBadPermissionSubtitle>");
}

TEST_F(KMInstallerAppDelegateTest, ASecondNotificationIsHandledFromTheStart) {
  launchUpdate();
  const auto copy = startController();
  postCredentials();
  fake.runLoop.advance(1500ms);
  EXPECT_EQ(copy->quitRequests, 1);
  postCredentials();
  EXPECT_TRUE(delegate.authorized());
  EXPECT_THAT(fake.runLoop.pendingDelays(&delegate), ElementsAre(Seconds(1.0)));
  fake.runLoop.advance(1s);
  EXPECT_EQ(copy->quitRequests, 2);
}

TEST_F(KMInstallerAppDelegateTest, ASecondNotificationBeforeTheQuittingReplacesTheDelayedCall) {
  launchUpdate();
  postCredentials();
  fake.runLoop.advance(500ms);
  postCredentials();
  EXPECT_THAT(fake.runLoop.pendingDelays(&delegate), ElementsAre(Seconds(1.0)));
}

TEST_F(KMInstallerAppDelegateTest, TerminationGivesTheRightsBackOnce) {
  launchUpdate();
  postCredentials();
  fake.authorization.calls.clear();
  fake.platform.application.terminate(nullptr);
  EXPECT_FALSE(delegate.authorized());
  EXPECT_THAT(fake.authorization.calls, ElementsAre("free 2 8"));
}

TEST_F(KMInstallerAppDelegateTest, ReleasingWithoutRightsDoesNothing) {
  launchUpdate();
  delegate.releaseRights();
  delegate.releaseRights();
  EXPECT_THAT(fake.authorization.calls, IsEmpty());
}
