#include "cli/InstallerRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/LaunchArguments.h"
#include "tests/support/FakeTool.h"

using namespace std::chrono_literals;
using platform::Ending;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class InstallerRunTest : public testing::Test {
 protected:
  static constexpr const char* newBundle = "/tmp/new/App.app";
  static constexpr const char* installedBundle = "/Applications/App.app";

  InstallerRunTest() {
    add(newBundle);
    add(installedBundle);
    fake.defaults.values = {{protocol::sourcePathArgument, newBundle},
                            {protocol::trashPathArgument, installedBundle},
                            {protocol::isUpdateArgument, "YES"}};
  }

  void add(const char* path) {
    auto bundle = std::make_shared<platform::fake::FakeBundle>();
    bundle->path = path;
    bundle->info = {{"CFBundleIdentifier", "com.acme.app"}};
    fake.bundles.others[path] = bundle;
    fake.files.addFolder(path);
    fake.workspace.applications[path] = "com.acme.app";
  }

  [[nodiscard]] std::string causeOfFailure() const {
    const auto& failure = fake.platform.report.failure();
    return failure ? failure->cause : "";
  }

  platform::fake::FakePlatform fake;
  tests::FakeTool tool{fake};
};

}  // namespace

TEST_F(InstallerRunTest, ObtainsTheRightsAndLeavesTheRestToTheInstaller) {
  cli::InstallerRun run(fake.platform, {});
  ASSERT_TRUE(run.start());
  EXPECT_THAT(tool.jobs, IsEmpty());
  fake.runLoop.advance(2s);
  EXPECT_THAT(tool.commands(), ElementsAre(protocol::replaceItemCommand));
  ASSERT_EQ(fake.workspace.launches.size(), 1U);
  EXPECT_EQ(fake.workspace.launches.front().path, installedBundle);
  EXPECT_TRUE(fake.application.isTerminated);
  EXPECT_EQ(fake.platform.report.ending(), Ending::done);
}

TEST_F(InstallerRunTest, AsksAPersonOnceAndBeforeAnythingElse) {
  bool isAsked = false;
  cli::InstallerRun run(fake.platform, {.onQuestion =
                                            [&] {
                                              isAsked = true;
                                              EXPECT_THAT(fake.authorization.calls, IsEmpty());
                                            },
                                        .mayGoOn = [] { return true; }});
  ASSERT_TRUE(run.start());
  EXPECT_TRUE(isAsked);
  constexpr auto flags = platform::kAuthorizationFlagExtendRights | platform::kAuthorizationFlagPreAuthorize |
                         platform::kAuthorizationFlagInteractionAllowed;
  EXPECT_EQ(fake.authorization.calls.at(1), platform::fake::copiedRights(1, flags));
}

TEST_F(InstallerRunTest, IsOverWhenTheRightIsRefusedAndAsksNobodyToQuit) {
  auto copy = std::make_shared<platform::fake::FakeRunningApplication>();
  fake.workspace.running["com.acme.app"].push_back(copy);
  fake.authorization.copyRightsStatus = platform::errAuthorizationDenied;
  cli::InstallerRun run(fake.platform, {});
  EXPECT_FALSE(run.start());
  EXPECT_EQ(fake.platform.report.ending(), Ending::refused);
  EXPECT_EQ(copy->quitRequests, 0);
  EXPECT_TRUE(fake.application.isTerminated);
}

TEST_F(InstallerRunTest, IsOverWithoutASession) {
  fake.authorization.createStatus = platform::errAuthorizationInternal;
  cli::InstallerRun run(fake.platform, {});
  EXPECT_FALSE(run.start());
  EXPECT_EQ(fake.platform.report.ending(), Ending::refused);
}

TEST_F(InstallerRunTest, IsOverWhenTheRightsCannotBeHandedOver) {
  fake.authorization.makeExternalFormStatus = platform::errAuthorizationInternal;
  fake.authorization.failureCause = "no form";
  cli::InstallerRun run(fake.platform, {});
  EXPECT_FALSE(run.start());
  EXPECT_EQ(causeOfFailure(), "no form");
}

TEST_F(InstallerRunTest, WaitsWithItsRightsAndConfirmsThemAfterwards) {
  std::size_t askedBefore = 0;
  cli::InstallerRun run(fake.platform, {.onQuestion = [] {},
                                        .mayGoOn =
                                            [&] {
                                              askedBefore = fake.authorization.calls.size();
                                              return true;
                                            }});
  ASSERT_TRUE(run.start());
  EXPECT_EQ(askedBefore, 2U);
  EXPECT_EQ(fake.authorization.calls.at(2), fake.authorization.calls.at(1));
}

TEST_F(InstallerRunTest, GivesTheRightsBackWhenItMayNotGoOn) {
  cli::InstallerRun run(fake.platform, {.onQuestion = [] {}, .mayGoOn = [] { return false; }});
  EXPECT_FALSE(run.start());
  EXPECT_EQ(fake.authorization.calls.back(), "free 1 8");
  fake.runLoop.advance(60s);
  EXPECT_THAT(tool.jobs, IsEmpty());
}

TEST_F(InstallerRunTest, GivesAllRightsBackInTheEnd) {
  cli::InstallerRun run(fake.platform, {});
  ASSERT_TRUE(run.start());
  fake.runLoop.advance(2s);
  // Its own session, the installer's empty one, and the one that was handed over.
  EXPECT_EQ(std::ranges::count_if(fake.authorization.calls, [](const auto& call) { return call.starts_with("free"); }), 3);
}
