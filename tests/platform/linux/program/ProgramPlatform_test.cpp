#include "platform/linux/program/ProgramPlatform.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <optional>
#include <string>

#include "kit/NSString+Kelto.h"
#include "logging/KTLogger.h"
#include "platform/linux/RunLoop.h"
#include "tests/platform/contracts/RunLoopContract.h"
#include "tests/support/Environment.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryFolder.h"

using namespace tests::contracts;

namespace {

using platform::Linux::RunLoop;

class PolledLoop {
 public:
  foundation::RunLoop& runLoop() { return _runLoop; }
  template <class Condition>
  bool waitFor(Condition condition) {
    return tests::eventually([&] {
      _runLoop.fireWhatIsDue();
      return condition();
    });
  }
  void pass(Seconds duration) {
    const auto end = RunLoop::Clock::now() + duration;
    while (RunLoop::Clock::now() < end) _runLoop.fireWhatIsDue();
  }
  static void beBusy(Seconds duration) {
    const auto end = RunLoop::Clock::now() + duration;
    while (RunLoop::Clock::now() < end) {
    }
  }
  void pause() { _pause.emplace(_runLoop); }
  void resume() { _pause.reset(); }

 private:
  RunLoop _runLoop;
  std::optional<RunLoop::Pause> _pause;
};

// A program whose files lie in a folder of the test's own, and that reaches no bus.
class ProgramPlatformTest : public testing::Test {
 protected:
  tests::TemporaryFolder folder;
  tests::EnvironmentVariable home{"HOME", folder.path("home")};
  tests::EnvironmentVariable state{"XDG_STATE_HOME", folder.path("state")};
  tests::EnvironmentVariable configuration{"XDG_CONFIG_HOME", folder.path("configuration")};
  tests::EnvironmentVariable bus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + folder.path("none")};
  std::string name = "test-program";
  std::array<char*, 2> arguments{name.data(), nullptr};
};

TEST_F(ProgramPlatformTest, MakesDelayedCallsUntilNoneIsLeft) {
  platform::Linux::ProgramPlatform program(1, arguments.data());
  std::string trace;
  auto& runLoop = platform::current().runLoop;
  runLoop.performAfterDelay(Seconds(0.01), &trace, [&] {
    trace += "a";
    runLoop.performAfterDelay(Seconds(0.01), &trace, [&] { trace += "b"; });
  });
  program.run();
  EXPECT_EQ(trace, "ab");
}

TEST_F(ProgramPlatformTest, EndsItsRunWhenTheApplicationTerminates) {
  platform::Linux::ProgramPlatform program(1, arguments.data());
  std::string trace;
  platform::current().defaultNotificationCenter.addObserver(foundation::applicationWillTerminateNotification,
                                                            [&](const auto&) { trace += "will end "; });
  const auto timer = platform::current().runLoop.scheduledTimer(Seconds(0.001), true, [&](foundation::Timer&) {
    trace += "tick ";
    platform::current().application.terminate(nullptr);
  });
  program.run();
  EXPECT_EQ(trace, "tick will end ");
}

TEST_F(ProgramPlatformTest, LetsTheLoggerWriteItsFile) {
  platform::Linux::ProgramPlatform program(1, arguments.data());
  KTLogger::sharedLogger()->log_level_message("test", 3, "%@ of %d", "One", 3);
  const auto files = KTLogger::sharedLogger()->logFileList();
  ASSERT_EQ(files.size(), 1U);
  EXPECT_NE(tests::readFile(files[0]).find("One of 3"), std::string::npos);
  EXPECT_EQ(files[0].rfind(folder.path("state"), 0), 0U) << files[0];
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Polled, RunLoopContract, PolledLoop);
