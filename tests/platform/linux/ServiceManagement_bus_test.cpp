#include "platform/linux/ServiceManagement.h"

#include <gmock/gmock.h>

#include <chrono>

#include "tests/platform/linux/Applications.h"

namespace platform::Linux {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using tests::TestProgram;

class ServiceManagementOverTheBus : public testing::Test {
 protected:
  std::optional<foundation::PropertyList::Dictionary> ask(const std::string& label) {
    return platform::Linux::ServiceManagement(log).copyJobDictionary(label);
  }

  // A manager that knows "known.service".
  static TestProgram manager(const std::string& loadState, const std::string& mainProcess) {
    return TestProgram({KELTO_BIN_DIR "/test_application", "manager", loadState, mainProcess});
  }

  tests::PrivateBus bus;
  tests::ScopedEnvironment _system{"DBUS_SYSTEM_BUS_ADDRESS", bus.address()};
  fake::FakeSystemLog log;
};

TEST_F(ServiceManagementOverTheBus, ARunningServiceHasItsProcess) {
  auto systemd = manager("loaded", "4711");
  ASSERT_TRUE(systemd.isReady());
  EXPECT_EQ(ask("known"), (foundation::PropertyList::Dictionary{{"Label", "known"}, {"PID", 4711}}));
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(ServiceManagementOverTheBus, AStoppedServiceHasNone) {
  auto systemd = manager("loaded", "0");
  ASSERT_TRUE(systemd.isReady());
  EXPECT_EQ(ask("known"), (foundation::PropertyList::Dictionary{{"Label", "known"}}));
}

TEST_F(ServiceManagementOverTheBus, AUnitThatCouldNotBeLoadedIsNotAJob) {
  auto systemd = manager("not-found", "0");
  ASSERT_TRUE(systemd.isReady());
  EXPECT_EQ(ask("known"), std::nullopt);
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(ServiceManagementOverTheBus, AnUnknownUnitIsNeitherAJobNorAnError) {
  auto systemd = manager("loaded", "1");
  ASSERT_TRUE(systemd.isReady());
  EXPECT_EQ(ask("unknown"), std::nullopt);
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(ServiceManagementOverTheBus, ARefusalIsLogged) {
  auto systemd = manager("broken", "0");
  ASSERT_TRUE(systemd.isReady());
  EXPECT_EQ(ask("unknown"), std::nullopt);
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("Not for you")));
}

TEST_F(ServiceManagementOverTheBus, AManagerThatDoesNotAnswerIsGivenUp) {
  auto systemd = manager("mute", "0");
  ASSERT_TRUE(systemd.isReady());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(ask("unknown"), std::nullopt);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("timed out")));
}

TEST_F(ServiceManagementOverTheBus, WithoutAManagerTheReasonIsLogged) {
  EXPECT_EQ(ask("known"), std::nullopt);
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("org.freedesktop.systemd1")));
}

TEST_F(ServiceManagementOverTheBus, WithoutABusTheReasonIsLogged) {
  const tests::ScopedEnvironment none("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/no/such/bus");
  EXPECT_EQ(ask("known"), std::nullopt);
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("No such file or directory")));
}

}  // namespace
}  // namespace platform::Linux
