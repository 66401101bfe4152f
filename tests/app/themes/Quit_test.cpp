#include "protocol/ToolProtocol.h"
#include "tests/app/InstallerFixture.h"

using namespace tests;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// 0.2 in single precision.
constexpr Seconds pollInterval{0.20000000298023224};

}  // namespace

TEST_F(KMInstallerAppDelegateTest, WithoutARunningCopyTheWorkStartsWithinTheSameCall) {
  launchUpdate();
  postCredentials();
  delegate.quitApplications(&delegate);
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand));
  EXPECT_THAT(fake.runLoop.timerIntervals(), IsEmpty());
}

TEST_F(KMInstallerAppDelegateTest, EveryRunningCopyIsAskedToQuitOnce) {
  launchUpdate();
  const auto first = startController();
  const auto second = startController();
  authorize();
  fake.runLoop.advance(3s);
  EXPECT_EQ(first->quitRequests, 1);
  EXPECT_EQ(second->quitRequests, 1);
  EXPECT_THAT(tool.jobs, IsEmpty());
}

TEST_F(KMInstallerAppDelegateTest, ThePollIntervalIsTheSinglePrecisionValueWidened) {
  launchUpdate();
  startController();
  authorize();
  EXPECT_THAT(fake.runLoop.timerIntervals(), ElementsAre(pollInterval));
}

TEST_F(KMInstallerAppDelegateTest, TheDeadlineIsFiveSecondsAfterTheRequests) {
  launchUpdate();
  startController();
  authorize();
  EXPECT_EQ(delegate.errorAt(), fake.runLoop.currentDate() + 5s);
}

TEST_F(KMInstallerAppDelegateTest, TheWorkStartsOnTheFirstTickAfterTheCopyIsGone) {
  launchUpdate();
  startController();
  authorize();
  fake.runLoop.advance(3s);
  quitController();
  EXPECT_THAT(tool.jobs, IsEmpty());
  fake.runLoop.advance(pollInterval);
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand));
  EXPECT_THAT(fake.runLoop.timerIntervals(), IsEmpty());
}

TEST_F(KMInstallerAppDelegateTest, ACopyThatNeverQuitsIsNamedOnTheFirstTickAfterFiveSeconds) {
  launchUpdate();
  startController();
  authorize();
  fake.runLoop.advance(5s);  // 24 ticks; the 25th is 75 nanoseconds late
  EXPECT_THAT(fake.application.alerts, IsEmpty());
  fake.runLoop.advance(1us);
  EXPECT_THAT(fake.application.alerts, ElementsAre(Alert{"text of <InstallerKeltoRunningSubtitle_1> with New Kelto",
                                                         "text of <InstallerKeltoRunningMessage>", "text of <OK>"}));
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_THAT(fake.runLoop.timerIntervals(), IsEmpty());
  EXPECT_THAT(tool.jobs, IsEmpty());
}

TEST_F(KMInstallerAppDelegateTest, ATickAtTheDeadlineItselfIsNotTooLate) {
  launchUpdate();
  startController();
  authorize();
  ASSERT_TRUE(delegate.errorAt());
  const auto timer = fake.runLoop.scheduledTimer(Seconds(60), true, [](foundation::Timer&) {});
  fake.clock.advance(*delegate.errorAt() - fake.runLoop.currentDate());
  delegate.pingQuittingApplications(*timer);
  EXPECT_THAT(fake.application.alerts, IsEmpty());
  EXPECT_TRUE(timer->isValid());
  fake.clock.advance(Seconds(2e-9));
  delegate.pingQuittingApplications(*timer);
  EXPECT_EQ(fake.application.alerts.size(), 1U);
  EXPECT_FALSE(timer->isValid());
}

TEST_F(KMInstallerAppDelegateTest, TheDeadlineCountsFromTheLastRequestHoweverLongTheyTake) {
  launchUpdate();
  startController()->onQuitRequest = [this] { fake.clock.advance(2s); };
  startController()->onQuitRequest = [this] { fake.clock.advance(1s); };
  authorize();
  EXPECT_EQ(delegate.errorAt(), fake.runLoop.currentDate() + 5s);
  fake.runLoop.advance(4999ms);
  EXPECT_THAT(fake.application.alerts, IsEmpty());
}

TEST_F(KMInstallerAppDelegateTest, ARequestThatCannotBeSentIsNotAFailure) {
  launchUpdate();
  const auto mute = startController();
  mute->canBeAsked = false;
  const auto other = startController();
  authorize();
  EXPECT_EQ(mute->quitRequests, 1);
  EXPECT_EQ(other->quitRequests, 1);
  EXPECT_THAT(fake.application.alerts, IsEmpty());
  mute->isRunning = false;
  other->isRunning = false;
  fake.runLoop.advance(pollInterval);
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand));
}

TEST_F(KMInstallerAppDelegateTest, ACopyThatStartsWhileTheOthersQuitIsWaitedForToo) {
  launchUpdate();
  const auto first = startController();
  first->quitsWhenAsked = true;
  const auto second = std::make_shared<platform::fake::FakeRunningApplication>();
  first->onQuitRequest = [&] { fake.workspace.running["com.kelto.macController"].push_back(second); };
  authorize();
  fake.runLoop.advance(1s);
  EXPECT_THAT(tool.jobs, IsEmpty());
  EXPECT_EQ(second->quitRequests, 0);
  second->isRunning = false;
  fake.runLoop.advance(pollInterval);
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand));
}

TEST_F(KMInstallerAppDelegateTest, InUninstallModeTheInstalledBundleTellsWhichApplicationMustQuit) {
  addController(installedBundle, "com.kelto.oldController", "Old Kelto");
  const auto copy = std::make_shared<platform::fake::FakeRunningApplication>();
  fake.workspace.running["com.kelto.oldController"].push_back(copy);
  launchUninstall();
  authorize();
  EXPECT_EQ(copy->quitRequests, 1);
  fake.runLoop.advance(6s);
  EXPECT_EQ(fake.application.alerts.at(0).messageText, "text of <InstallerKeltoRunningSubtitle_1> with Old Kelto");
}

TEST_F(KMInstallerAppDelegateTest, OnceTheCopiesAreGoneAnUninstallGoesOnUninstalling) {
  launchUninstall();
  startController();
  authorize();
  quitController();
  fake.runLoop.advance(pollInterval);
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::trashFileCommand));
}
