#include "platform/linux/BrokerBounds.h"

#include <gtest/gtest.h>

#include <chrono>

#include "protocol/Broker.h"
#include "tests/platform/linux/Applications.h"

namespace platform::Linux {
namespace {

using tests::TestProgram;

class BrokerBounds : public testing::Test {
 protected:
  BrokerBounds() { std::filesystem::create_directory_symlink(folder.path("lib"), folder.path("lib64")); }

  // A manager that knows one unit; folders are separated by colons.
  static TestProgram manager(const std::string& readOnly, const std::string& writable = "",
                             const std::string& busName = protocol::brokerBusName, const std::string& state = "loaded") {
    return TestProgram({KELTO_BIN_DIR "/test_application", "manager", state, "0", busName, readOnly, writable});
  }

  tests::PrivateBus bus;
  tests::ScopedEnvironment system{"DBUS_SYSTEM_BUS_ADDRESS", bus.address()};
  tests::TemporaryFolder folder;
};

TEST_F(BrokerBounds, AreTheReadOnlyFoldersOfTheUnit) {
  auto systemd = manager("-/boot:-/usr/lib:-+/srv");
  ASSERT_TRUE(systemd.isReady());
  EXPECT_EQ(readOnlyFolderAround("/usr/lib/editor"), "/usr/lib");
  EXPECT_EQ(readOnlyFolderAround("/usr/lib"), "/usr/lib");
  EXPECT_EQ(readOnlyFolderAround("/srv/editor"), "/srv");
  for (const char* path : {"/usr", "/usr/library", "/opt/usr/lib", "/"}) EXPECT_EQ(readOnlyFolderAround(path), "") << path;
}

TEST_F(BrokerBounds, LeaveOutFoldersThatAreWritableWithin) {
  auto systemd = manager("/:/usr/lib/editor/fixed", "/usr/lib/editor");
  ASSERT_TRUE(systemd.isReady());
  EXPECT_EQ(readOnlyFolderAround("/opt"), "/");
  EXPECT_EQ(readOnlyFolderAround("/usr/lib/editor/bundles"), "");
  EXPECT_EQ(readOnlyFolderAround("/usr/lib/editor/fixed"), "/usr/lib/editor/fixed");
}

TEST_F(BrokerBounds, FollowTheLinksOfTheMachine) {
  auto systemd = manager("-" + folder.path("lib64"));
  ASSERT_TRUE(systemd.isReady());
  std::filesystem::create_directory(folder.path("lib"));
  const auto lib = std::filesystem::canonical(folder.path("lib")).string();
  EXPECT_EQ(readOnlyFolderAround(lib + "/editor"), lib);
}

TEST_F(BrokerBounds, OfAUnitThatBringsNoBrokerAreNotTheTools) {
  auto systemd = manager("/", "", "com.example.Other");
  ASSERT_TRUE(systemd.isReady());
  EXPECT_EQ(readOnlyFolderAround("/usr/lib"), "");
}

TEST_F(BrokerBounds, AreUnknownWithoutAManagerOrABus) {
  EXPECT_EQ(readOnlyFolderAround("/usr/lib"), "");
  const tests::ScopedEnvironment none("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/no/such/bus");
  EXPECT_EQ(readOnlyFolderAround("/usr/lib"), "");
}

}  // namespace
}  // namespace platform::Linux
